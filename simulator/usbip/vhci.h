// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace sim::usbip {

/// The Linux kernel's virtual host controller on this machine (module vhci_hcd). It is a host for
/// devices at the other end of a socket.
class Vhci {
public:
    /// Throws std::runtime_error, with what to do about it, when it cannot be used.
    Vhci();

    /// Plugs the device behind `socket` into high-speed port `wanted`, or any free one, and returns
    /// that port's number. A port that has just been left is waited for. The kernel takes a
    /// reference of its own; the device is unplugged when the other end closes. Throws
    /// std::runtime_error.
    unsigned attach(int socket, uint32_t device_id, std::optional<unsigned> wanted) const;
};

} // namespace sim::usbip
