// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "bus/virtual_time.h"

/// usleep() and gettimeofday() of the test on a clock that only moves when told.
class SimulatedTime {
public:
    explicit SimulatedTime(int64_t start_us = 0) : SimulatedTime(true) { set_us(start_us); }
    /// Not installed, it is the simulated camera's time only, and the test's is real.
    explicit SimulatedTime(bool installed)
    {
        if (installed)
            installed_.emplace(clock_);
    }

    void set_us(int64_t now_us)
    {
        clock_.advance_us(static_cast<uint64_t>(now_us) - clock_.now_us());
    }
    uint64_t now_us() { return clock_.now_us(); }
    sim::VirtualClock& clock() { return clock_; }

private:
    sim::VirtualClock clock_;
    std::optional<sim::InstalledVirtualClock> installed_;
};
