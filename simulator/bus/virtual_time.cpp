// SPDX-License-Identifier: Apache-2.0
#include "bus/virtual_time.h"

#include "bus/bed.h"

#include <atomic>

namespace sim {

namespace {

std::atomic<VirtualClock*> installed{nullptr};

} // namespace

InstalledVirtualClock::InstalledVirtualClock(VirtualClock* clock)
    : before_(installed.exchange(clock))
{
}

InstalledVirtualClock::~InstalledVirtualClock()
{
    installed = before_;
}

VirtualClock* installed_virtual_clock()
{
    return installed;
}

void sleep_virtually(VirtualClock& clock, uint64_t duration_us)
{
    clock.advance_us(duration_us);
    TestBed::settle_active();
}

} // namespace sim
