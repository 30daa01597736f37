// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace sim {

/// While it lives, nobody else opens or names an event socket of that bed, in whatever process.
/// Without the bed's folder it locks nothing.
class EventLock {
public:
    explicit EventLock(const std::string& bed);
    ~EventLock();
    EventLock(const EventLock&) = delete;
    EventLock& operator=(const EventLock&) = delete;

private:
    int fd_;
};

} // namespace sim
