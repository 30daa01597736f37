// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/time.h>
#include <cstdint>

namespace nyxus::engine {

/// Sleeps are usleep() and time is this, as in the library, so that tests replace both.
inline int64_t now_us()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_usec;
}

} // namespace nyxus::engine
