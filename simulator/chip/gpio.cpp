// SPDX-License-Identifier: Apache-2.0
#include "gpio.h"

namespace sim {
namespace {

constexpr uint16_t kDataReg = 0x0020;        // one bit per pin, two bytes
constexpr uint16_t kDriveEnableReg = 0x0022; // likewise
constexpr uint16_t kGpio0SelectReg = 0x0029;
constexpr uint8_t kGpio0Selected = 0x80;

} // namespace

bool gpio_driven(std::span<const uint8_t, 0x10000> xdata, unsigned index)
{
    if (index >= kGpioCount)
        return false;
    // GPIO 0 shares its pin with another function and needs to be selected first.
    if (index == 0 && (xdata[kGpio0SelectReg] & kGpio0Selected) == 0)
        return false;
    return (xdata[kDriveEnableReg + index / 8] & 1U << index % 8) != 0;
}

bool gpio_level(std::span<const uint8_t, 0x10000> xdata, unsigned index)
{
    return gpio_driven(xdata, index) && (xdata[kDataReg + index / 8] & 1U << index % 8) != 0;
}

} // namespace sim
