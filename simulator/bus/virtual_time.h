// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/clock.h"

#include <cstdint>

namespace sim {

/// While one is installed, usleep() and gettimeofday() of an executable that links
/// nyxus_sim_virtual_time run on it; otherwise on the machine's clock.
class InstalledVirtualClock {
public:
    explicit InstalledVirtualClock(VirtualClock& clock);
    ~InstalledVirtualClock();
    InstalledVirtualClock(const InstalledVirtualClock&) = delete;
    InstalledVirtualClock& operator=(const InstalledVirtualClock&) = delete;
};

/// Real time for the process while it lives, whatever clock is installed.
class SuspendedVirtualClock {
public:
    SuspendedVirtualClock();
    ~SuspendedVirtualClock();
    SuspendedVirtualClock(const SuspendedVirtualClock&) = delete;
    SuspendedVirtualClock& operator=(const SuspendedVirtualClock&) = delete;

private:
    VirtualClock* suspended_;
};

VirtualClock* installed_virtual_clock();

/// The host sleeps: the clock advances, and what the bus had under way happens meanwhile.
void sleep_virtually(VirtualClock& clock, uint64_t duration_us);

} // namespace sim
