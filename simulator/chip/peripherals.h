// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "clock.h"

#include <array>
#include <cstdint>
#include <span>

namespace sim {

/// The controller's I2C master: device address, register address and length in their registers, up
/// to eight bytes in the buffer, then a control value that starts the transfer. The image sensor is
/// the only device on the bus; from other addresses nobody answers and the lines read as FF.
class I2cMaster {
public:
    static constexpr uint8_t kSensorAddress = 0x60; ///< 8-bit form

    I2cMaster(std::span<uint8_t, 0x10000> xdata, std::span<uint8_t, 0x10000> sensor)
        : xdata_(xdata), sensor_(sensor)
    {
    }

    /// To be called after the host has written the register.
    void written(uint16_t address);

private:
    void transfer(uint8_t control);

    std::span<uint8_t, 0x10000> xdata_;
    std::span<uint8_t, 0x10000> sensor_;
};

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
