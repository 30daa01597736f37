// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usbip/connection.h"
#include "usbip/session.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

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

/// Keeps devices plugged into this machine's kernel, also across their restarts.
class LocalHost {
public:
    /// The devices are those of `exports` now. Throws std::runtime_error.
    LocalHost(ExportList exports, VirtualClock* clock);
    /// Unplugs them.
    ~LocalHost();
    LocalHost(const LocalHost&) = delete;
    LocalHost& operator=(const LocalHost&) = delete;

    /// How many have not been detached by the machine.
    size_t attached() const { return attached_; }

private:
    struct Port {
        std::string bus_id;
        int socket = -1;                ///< our end while it is plugged in
        std::optional<unsigned> number; ///< once it has been plugged in; it stays there
        std::thread thread;
    };

    void keep_plugged(Port& port);
    bool plug_once(Port& port, const Export& device);
    std::vector<Export> wait_for(const std::string& bus_id) const;

    Vhci vhci_;
    ExportList exports_;
    FastForward time_;
    std::mutex mutex_; ///< the sockets of the ports
    std::atomic<bool> stopping_{false};
    std::atomic<size_t> attached_{0};
    std::list<Port> ports_;
};

} // namespace sim::usbip
