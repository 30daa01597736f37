// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/protocol.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

struct usbdevfs_urb;

namespace sim {

/// One opened node as the program sees it: turns ioctls on the program's memory into requests
/// and replies into what the kernel would have written. Thread-safe.
class IoctlSession {
public:
    explicit IoctlSession(std::unique_ptr<Channel> channel) : channel_(std::move(channel)) {}

    /// The ioctl's result, or a negative errno.
    int ioctl(uint32_t code, void* argument);

private:
    /// Where the answer of an URB may go; nothing beyond it is ever written.
    struct Target {
        uint8_t* buffer;
        uint32_t bytes;
        uint16_t packets;
        bool is_control;
    };

    int simple_call(uint32_t code, uint32_t first, uint32_t second);
    int read_number(uint32_t code, void* argument);
    int read_driver_name(void* argument);
    int submit(usbdevfs_urb* urb);
    int reap(bool wait, void* argument);
    void deliver(const Reply& reply, const Target& target);

    std::unique_ptr<Channel> channel_;
    std::mutex mutex_;
    std::unordered_map<uint64_t, Target> targets_;
};

} // namespace sim
