// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/clock.h"
#include "usbip/session.h"

#include <chrono>
#include <mutex>

namespace sim::usbip {

/// A kernel's waiting cannot be seen, so that cameras that are to be fast have a clock that runs a
/// hundred times as fast as the machine's. Thread-safe.
class FastForward {
public:
    /// nullptr: the cameras run in real time.
    explicit FastForward(VirtualClock* clock) : clock_(clock) {}
    /// Brings the cameras' clock up to now, and does what is due by it. Called before they answer
    /// anything, and from time to time while nothing is asked.
    void catch_up();
    bool is_needed() const { return clock_ != nullptr; }

private:
    VirtualClock* clock_;
    std::mutex mutex_;
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

/// Carries bytes between the session and its peer's stream socket until one of them has ended; a
/// shutdown() of the socket by another thread does that too. A peer that takes too long to import a
/// device is given up.
void converse(int socket, Session& session, FastForward& time);

} // namespace sim::usbip
