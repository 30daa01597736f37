// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/protocol.h"
#include "bus/sysfs.h"
#include "usb/setup.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace sim {

/// The root hub of a bus. The kernel's driver has it; it can be opened and asked. Thread-safe.
class RootHub : public std::enable_shared_from_this<RootHub> {
public:
    explicit RootHub(unsigned bus) : bus_(bus) {}

    unsigned bus() const { return bus_; }
    void set_connected(unsigned port, bool connected);
    std::unique_ptr<Channel> open() const;
    /// One control transfer: what it answers, or nothing for a stall.
    std::optional<std::vector<uint8_t>> answer(const Setup& setup) const;

private:
    const unsigned bus_;
    std::atomic<uint32_t> connected_{0}; ///< a bit per port
};

} // namespace sim
