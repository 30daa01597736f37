// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>
#include <cstdint>

namespace nyxus {

/// One sleep; none at all for 0.
inline void pause_ms(uint32_t duration_ms)
{
    if (duration_ms > 0)
        usleep(duration_ms * 1000);
}

} // namespace nyxus
