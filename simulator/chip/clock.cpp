// SPDX-License-Identifier: Apache-2.0
#include "clock.h"

#include <chrono>

namespace sim {

uint64_t RealClock::now_us()
{
    const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(since_start).count());
}

uint64_t VirtualClock::now_us()
{
    return now_us_.load(std::memory_order_relaxed);
}

void VirtualClock::advance_us(uint64_t elapsed_us)
{
    now_us_.fetch_add(elapsed_us, std::memory_order_relaxed);
}

} // namespace sim
