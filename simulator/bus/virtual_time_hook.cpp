// SPDX-License-Identifier: Apache-2.0
// usleep() and gettimeofday() of an executable whose tests run on a virtual clock.
#include "bus/interpose.h"
#include "bus/virtual_time.h"

#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr time_t kVirtualEpochS = 1700000000;

} // namespace

extern "C" int usleep(useconds_t duration_us)
{
    if (sim::VirtualClock* clock = sim::installed_virtual_clock()) {
        sim::sleep_virtually(*clock, duration_us);
        return 0;
    }
    static const auto next = sim::next_function<int (*)(useconds_t)>("usleep");
    return next(duration_us);
}

extern "C" int gettimeofday(timeval* __restrict time, void* __restrict zone) noexcept
{
    if (const auto now_us = sim::virtual_time_us()) {
        time->tv_sec = kVirtualEpochS + static_cast<time_t>(*now_us / sim::kUsPerSecond);
        time->tv_usec = static_cast<suseconds_t>(*now_us % sim::kUsPerSecond);
        return 0;
    }
    static const auto next = sim::next_function<int (*)(timeval*, void*)>("gettimeofday");
    return next(time, zone);
}
