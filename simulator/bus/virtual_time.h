// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/clock.h"

#include <cstdint>
#include <optional>

namespace sim {

/// While one is installed, usleep() and gettimeofday() of an executable that links
/// nyxus_sim_virtual_time run on it; otherwise, and with nullptr, on the machine's clock.
class InstalledVirtualClock {
public:
    explicit InstalledVirtualClock(VirtualClock* clock);
    explicit InstalledVirtualClock(VirtualClock& clock) : InstalledVirtualClock(&clock) {}
    ~InstalledVirtualClock();
    InstalledVirtualClock(const InstalledVirtualClock&) = delete;
    InstalledVirtualClock& operator=(const InstalledVirtualClock&) = delete;

private:
    VirtualClock* before_;
};

VirtualClock* installed_virtual_clock();
/// Of the installed one, in any thread, even while it is taken away.
std::optional<uint64_t> virtual_time_us();

/// The host sleeps: the clock advances, and what the bus had under way happens meanwhile.
void sleep_virtually(VirtualClock& clock, uint64_t duration_us);

} // namespace sim
