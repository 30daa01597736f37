// SPDX-License-Identifier: Apache-2.0
#pragma once

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

} // namespace sim
