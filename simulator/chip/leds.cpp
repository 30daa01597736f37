// SPDX-License-Identifier: Apache-2.0
#include "leds.h"

namespace sim {

void Leds::settle()
{
    const uint64_t now_us = clock_.now_us();
    for (size_t led = 0; led < kCount; ++led) {
        if (now_us >= done_at_us_[led])
            xdata_[kFirstReg + led] &= static_cast<uint8_t>(~kPending);
    }
}

void Leds::written(uint16_t address)
{
    if (address >= kFirstReg && address < kFirstReg + kCount)
        done_at_us_[address - kFirstReg] = clock_.now_us() + kUpdateUs;
}

} // namespace sim
