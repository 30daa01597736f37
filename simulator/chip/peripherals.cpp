// SPDX-License-Identifier: Apache-2.0
#include "peripherals.h"

#include <algorithm>

namespace sim {

namespace {

constexpr uint16_t kBuffer = 0x0E40;
constexpr uint8_t kBufferBytes = 8;
constexpr uint16_t kDeviceReg = 0x0E49;
constexpr uint16_t kRegisterHighReg = 0x0E4A; // bit 7 is bit 8 of the register address
constexpr uint16_t kRegisterLowReg = 0x0E4B;
constexpr uint16_t kLengthReg = 0x0E4C;
constexpr uint16_t kI2cControlReg = 0x0E4D;
constexpr uint8_t kStart = 0x80;
constexpr uint8_t kReads = 0x40;
constexpr uint8_t kNobody = 0xFF;

} // namespace

void I2cMaster::written(uint16_t address)
{
    if (address == kI2cControlReg && (xdata_[kI2cControlReg] & kStart) != 0)
        transfer(xdata_[kI2cControlReg]);
}

void I2cMaster::transfer(uint8_t control)
{
    const size_t start = (xdata_[kRegisterHighReg] & 0x80U) << 1 | xdata_[kRegisterLowReg];
    const auto cells = sensor_.subspan(start, std::min(xdata_[kLengthReg], kBufferBytes));
    const auto buffer = xdata_.subspan(kBuffer, cells.size());
    const bool answered = (xdata_[kDeviceReg] & 0xFE) == kSensorAddress;
    if ((control & kReads) == 0) {
        if (answered)
            std::ranges::copy(buffer, cells.begin());
    } else if (answered) {
        std::ranges::copy(cells, buffer.begin());
    } else {
        std::ranges::fill(buffer, kNobody);
    }
}

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
