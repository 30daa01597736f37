// SPDX-License-Identifier: Apache-2.0
#include "i2c_master.h"

#include <algorithm>

namespace sim {
namespace {

constexpr uint16_t kBuffer = 0x0E40;
constexpr uint8_t kBufferBytes = 8;
constexpr uint16_t kDeviceReg = 0x0E49;
constexpr uint16_t kRegisterHighReg = 0x0E4A; // bit 7 is bit 8 of the register address
constexpr uint16_t kRegisterLowReg = 0x0E4B;
constexpr uint16_t kLengthReg = 0x0E4C;
constexpr uint16_t kControlReg = 0x0E4D;
constexpr uint8_t kStart = 0x80;
constexpr uint8_t kReads = 0x40;
constexpr uint8_t kNobody = 0xFF;

} // namespace

void I2cMaster::written(uint16_t address)
{
    if (address == kControlReg && (xdata_[kControlReg] & kStart) != 0)
        transfer(xdata_[kControlReg]);
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

} // namespace sim
