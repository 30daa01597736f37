// SPDX-License-Identifier: Apache-2.0
#include "clock.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace sim {

namespace {

using Steady = std::chrono::steady_clock;

thread_local Steady::time_point wire_is_free_at;

} // namespace

uint64_t RealClock::now_us()
{
    const auto since_start = Steady::now().time_since_epoch();
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(since_start).count());
}

void RealClock::advance_us(uint64_t elapsed_us)
{
    wire_is_free_at =
        std::max(wire_is_free_at, Steady::now()) + std::chrono::microseconds(elapsed_us);
}

void RealClock::wait_for_wire()
{
    std::this_thread::sleep_until(wire_is_free_at);
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
