// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "clock.h"

#include <array>
#include <cstdint>
#include <span>

namespace sim {

/// The LED registers. The host asks for a state with the pending bit set; the firmware, which looks
/// at them every now and then, takes the state over and clears the bit.
class Leds {
public:
    static constexpr uint16_t kFirstReg = 0x0B69;
    static constexpr size_t kCount = 15;
    static constexpr uint8_t kPending = 0x80;
    static constexpr uint32_t kUpdateUs = 20'000;

    Leds(std::span<uint8_t, 0x10000> xdata, Clock& clock) : xdata_(xdata), clock_(clock) {}

    /// To be called before registers are read: finishes the updates whose time has come.
    void settle();
    /// To be called after the host has written the register.
    void written(uint16_t address);

private:
    std::span<uint8_t, 0x10000> xdata_;
    Clock& clock_;
    std::array<uint64_t, kCount> done_at_us_{};
};

} // namespace sim
