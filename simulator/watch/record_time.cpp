// SPDX-License-Identifier: Apache-2.0
#include "watch/record_time.h"

#include <chrono>

namespace sim {

RecordTime::RecordTime(Clock& clock, bool is_real) : clock_(clock)
{
    using std::chrono::system_clock;
    if (is_real) {
        const auto today = std::chrono::duration_cast<std::chrono::microseconds>(
            system_clock::now().time_since_epoch());
        offset_us_ = static_cast<uint64_t>(today.count()) - clock.now_us();
    }
}

} // namespace sim
