// SPDX-License-Identifier: Apache-2.0
#include "bus/virtual_time.h"

#include "bus/bed.h"

#include <atomic>
#include <thread>

namespace sim {

namespace {

std::atomic<VirtualClock*> installed{nullptr};
std::atomic<unsigned> readers{0};

} // namespace

InstalledVirtualClock::InstalledVirtualClock(VirtualClock* clock)
    : before_(installed.exchange(clock))
{
}

InstalledVirtualClock::~InstalledVirtualClock()
{
    installed = before_;
    // The clock may go now, but GLib's threads ask for the time while they end.
    while (readers != 0)
        std::this_thread::yield();
}

std::optional<uint64_t> virtual_time_us()
{
    ++readers;
    VirtualClock* const clock = installed;
    const auto now_us = clock != nullptr ? std::optional(clock->now_us()) : std::nullopt;
    --readers;
    return now_us;
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
