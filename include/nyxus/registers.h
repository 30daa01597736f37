/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Addresses behind XuRegRead(), XuRegWrite(), XuMcuDataRead() and XuMcuDataWrite(), as far as the
 * library knows them. Each has a function that reads or writes it in the right order; use that
 * one where it does what you need.
 *
 * Registers have 16-bit addresses and are a byte wide; where more bytes belong together, they are
 * given here. Bits without a meaning here belong to the firmware: read a register, change its
 * bit, and write it back.
 */
#ifndef NYXUS_REGISTERS_H
#define NYXUS_REGISTERS_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** Registers of the controller: REG_* of the chip, XDATA_* in the firmware's memory. */
enum {
    REG_GPIO_DATA_0 = 0x0020,    /**< levels of GPIO 0 to 7, a bit each; XU_GpioSet() */
    REG_GPIO_DATA_1 = 0x0021,    /**< levels of GPIO 8 to 15 */
    REG_GPIO_OE_0 = 0x0022,      /**< GPIO 0 to 7: a set bit drives the pin */
    REG_GPIO_OE_1 = 0x0023,      /**< GPIO 8 to 15: a set bit drives the pin */
    bRegMcuClk = 0x0026,         /**< setting bit 4 restarts the chip; XU_ChipReset() */
    REG_GPIO0_SEL = 0x0029,      /**< bit 7 has to be set before GPIO 0 is driven */
    REG_I2C_LENG = 0x0046,       /**< answer bytes of an SPI command; XU_SpiCmdGet() */
    REG_SPI_CTL = 0x0049,        /**< SPI commands: 3 bytes of set-up, then a byte that starts;
                                      bit 0 of the first: busy; XU_SpiCmdGet(), XU_SpiCmdSet() */
    REG_MJPG_QGAIN = 0x0060,     /**< MJPEG quantisation gain, 1 to 63; XU_MjpgQGainSet() */
    REG_EEPROM_SEQ_BUF = 0x0100, /**< bytes of an SPI command, then those of its answer */
    REG_OSD_CTRL = 0x0544,       /**< bit 1: date-time stamp, bit 4: transparent background;
                                      XU_OsdEnableDatetime(), XU_OsdEnableTransparent() */
    REG_FLASH_INFO = 0x0A27,     /**< 11 bytes, the first of NyFlashInfo; XU_SpiGetFlashInfo() */

    XDATA_LED_CTRL = 0x0B69, /**< a byte per LED, of LED n at this address + n; bit 7: update
                                  pending; XU_LedStatusSet() */
    XDATA_SG_SENSOR_RESET_INIT = 0x0B78, /**< 4: reset and re-initialise the sensor, 3: trigger a
                                              snapshot; SG_SetSensorResetInit() */
    XDATA_MOTION_SETTING = 0x0B84,       /**< 4 bytes; XU_MotionDetectSet() */
    XDATA_MOTION_ALARM = 0x0B87,         /**< the last of them; bit 0: alarm, to be cleared when
                                              it was seen; XU_MotionDetectPoll() */
    XDATA_SG_SNAPSHOT_MODE = 0x0B88,     /**< 1: snapshots, 0: stream; DEV_DeleteObject() sets 1 */
    XDATA_SG_AUTO_POWER = 0x0B8C,        /**< automatic power, 0 or 1; SG_SetAutoPower() */
    XDATA_SG_SENSOR_RESET_PIN = 0x0B8D,  /**< 1 pulses the pin; SG_SetSensorResetPin() */
    XDATA_SG_LED_CTRL = 0x0B8E,          /**< illumination, 0 or 1; SG_LedControl() */
    XDATA_SG_TOUCH_STATUS = 0x0B8F,      /**< touch state; SG_TouchStatus() */
    XDATA_H264_IFRAME_PERIOD = 0x0D00,   /**< 4 bytes: frames from one I-frame to the next, and one
                                              less (at least 1), big-endian; H264SetIFramePeriod() */
    XDATA_H264_FORMAT_I = 0x0D0A, /**< 2 bytes: bit 3 set in both is format 0; H264SetFormat() */
    XDATA_I2C_BUF = 0x0E40,       /**< 8 bytes of data; XU_I2cGet(), XU_I2cSet() */
    XDATA_I2C_ADDR_MODE = 0x0E48, /**< 2 bytes: addressing mode (bit 0), device address in 8-bit
                                       form; XU_I2cConfigSet() */
    XDATA_I2C_ADDR = 0x0E4A,      /**< 4 bytes: register address, length, and what starts the
                                       transfer */
};

/** MCU data, with 8-bit addresses. */
enum {
    BDATA_SYS_MODEL_FIELD_1 = 0x20, /**< bit 0: USB speed; SG_UsbSpeed() */
    MCU_SYS_MODEL_FIELD = 0x21,     /**< bit 2: runs from SPI flash, bit 3: external firmware, bit
                                         4: sensor set-file; XU_FwGetStatus() */
};

NYXUS_END_DECLS

#endif
