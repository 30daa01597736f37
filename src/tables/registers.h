// SPDX-License-Identifier: Apache-2.0
// Controller registers (XDATA), MCU data, and the opcodes of the SPI flash.
#pragma once

#include <cstdint>

// clang-format off
enum : uint16_t {
    REG_GPIO_DATA_0            = 0x0020,   // output level of GPIO 0-7
    REG_GPIO_DATA_1            = 0x0021,   // output level of GPIO 8-15
    REG_GPIO_OE_0              = 0x0022,   // drive enable of GPIO 0-7
    REG_GPIO_OE_1              = 0x0023,   // drive enable of GPIO 8-15
    bRegMcuClk                 = 0x0026,   // bit 4 restarts the chip
    REG_GPIO0_SEL              = 0x0029,   // bit 7 lets GPIO 0 be driven
    REG_I2C_LENG               = 0x0046,   // answer bytes to clock in
    REG_SPI_CTL                = 0x0049,   // 3 bytes of set-up; bit 0 of the first = busy
    REG_MJPG_QGAIN             = 0x0060,
    REG_EEPROM_SEQ_BUF         = 0x0100,   // command bytes, then answer bytes
    REG_OSD_CTRL               = 0x0544,   // bit 1 = date-time stamp, bit 4 = transparent
    REG_FLASH_INFO             = 0x0A27,   // 11 bytes
    XDATA_LED_CTRL             = 0x0B69,   // 1 byte per LED
    XDATA_SG_SENSOR_RESET_INIT = 0x0B78,   // 4 = reset the sensor, 3 = trigger a snapshot
    XDATA_MOTION_SETTING       = 0x0B84,   // 4 bytes
    XDATA_MOTION_ALARM         = 0x0B87,   // bit 0 = alarm latched
    XDATA_SG_SNAPSHOT_MODE     = 0x0B88,   // 1 = snapshot, 0 = stream
    XDATA_SG_AUTO_POWER        = 0x0B8C,
    XDATA_SG_SENSOR_RESET_PIN  = 0x0B8D,   // 1 pulses the pin
    XDATA_SG_LED_CTRL          = 0x0B8E,
    XDATA_SG_TOUCH_STATUS      = 0x0B8F,
    XDATA_H264_IFRAME_PERIOD   = 0x0D00,   // 4 bytes: period, period - 1, big-endian
    XDATA_H264_FORMAT_I        = 0x0D0A,   // 2 bytes: bit 3 of each
    XDATA_I2C_BUF              = 0x0E40,   // 8 bytes
    XDATA_I2C_ADDR_MODE        = 0x0E48,   // addressing mode, device address
    XDATA_I2C_ADDR             = 0x0E4A,   // register address, length, start
};

enum : uint8_t {   // MCU data
    BDATA_SYS_MODEL_FIELD_1    = 0x20,     // bit 0 = USB speed
    MCU_SYS_MODEL_FIELD        = 0x21,     // what the firmware runs from
};

enum : uint8_t {
    kSpiWriteDisable     = 0x04,
    kSpiWriteEnable      = 0x06,
    kSpiStatusWriteEnable = 0x50,
    kSpiReadIdJedec      = 0x9F,
    kSpiReadId15         = 0x15,
    kSpiReadIdAb         = 0xAB,
    kSpiReadId90         = 0x90,
};
// clang-format on
