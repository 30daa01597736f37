/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Peripherals of the controller: GPIO, I2C, LEDs, MJPEG gain, motion detection.
 */
#ifndef NYXUS_PERIPHERAL_H
#define NYXUS_PERIPHERAL_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** GPIO levels. */
enum { GPIO_LOW = 0, GPIO_HIGH = 1 };

/**
 * Drive a GPIO pin.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param bIndex   pin, 0 to 15; 16 is accepted and changes nothing; only the low byte counts
 * @param bValue   GPIO_LOW, or anything else for high; only the low byte counts
 * @return 0, also when a register could not be reached; -1036 for a larger index; -1026 for NULL
 *
 * Blocks for 9 transfers (pin 0) or 6. One thread at a time per device.
 */
NYXUS_API int32_t XU_GpioSet(NyDevice* pDevObj, int32_t bIndex, int32_t bValue);

/**
 * Read the I2C configuration: the device address in 8-bit form, bit 0 = addressing mode.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param pConfig  written on success
 * @return 0; -1026, -1036 for NULL; else the register's failure
 *
 * Blocks for 2 transfers. One thread at a time per device.
 */
NYXUS_API int32_t XU_I2cConfigGet(NyDevice* pDevObj, uint8_t* pConfig);
/** Set the I2C configuration. Blocks for a transfer; results and thread word as XU_I2cConfigGet().
 */
NYXUS_API int32_t XU_I2cConfigSet(NyDevice* pDevObj, const uint8_t* pConfig);

/**
 * Read registers of the configured I2C device.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param wAddr    register address, 9 bits
 * @param bLen     bytes; keep to 8, behind them lie the controller's own I2C registers
 * @param pBuf     receives bLen bytes
 * @return 0; -1 (bare) for a NULL buffer; -1026 for a NULL device; else the register's failure
 *
 * Blocks for 1 + 2 * (bLen / 8, rounded up) transfers. One thread at a time per device.
 */
NYXUS_API int32_t XU_I2cGet(NyDevice* pDevObj, uint16_t wAddr, uint8_t bLen, uint8_t* pBuf);
/** Write registers of the configured I2C device. Arguments, results and thread word as XU_I2cGet().
 *  Blocks for 1 + bLen / 8 (rounded up) transfers. */
NYXUS_API int32_t XU_I2cSet(NyDevice* pDevObj, uint16_t wAddr, uint8_t bLen, const uint8_t* pBuf);

/**
 * Read the state of an LED.
 *
 * @param pDevObj       probed device, borrowed for the call
 * @param bLedSelector  LED, 0 to 255
 * @param pLedStatus    state bits (mask 0x58); the raw byte when the result is -16
 * @return 0; -16 (bare) while an update is pending; -1026, -1036 for NULL; else the register's
 *         failure
 *
 * Blocks for 2 transfers. One thread at a time per device.
 */
NYXUS_API int32_t XU_LedStatusGet(NyDevice* pDevObj, uint8_t bLedSelector, uint8_t* pLedStatus);
/** Update an LED; the firmware takes the update up later. -16 (bare) while an earlier one is
 * pending. Blocks for 3 transfers; other results and thread word as XU_LedStatusGet(). */
NYXUS_API int32_t XU_LedStatusSet(NyDevice* pDevObj, uint8_t bLedSelector, uint8_t bLedStatus);

/** Read the MJPEG quantisation gain. Blocks for 2 transfers; -1026, -1036 for NULL. One thread at a
 *  time per device. */
NYXUS_API int32_t XU_MjpgQGainGet(NyDevice* pDevObj, uint8_t* pGain);
/** Set the MJPEG quantisation gain: 1 to 63 but not 32, else -1 (bare); only the low byte counts.
 *  Blocks for a transfer. One thread at a time per device. */
NYXUS_API int32_t XU_MjpgQGainSet(NyDevice* pDevObj, int32_t bGain);

/** Read the motion-detection setting: 4 bytes that the firmware defines. Blocks for 2 transfers;
 *  -1026, -1036 for NULL. One thread at a time per device. */
NYXUS_API int32_t XU_MotionDetectGet(NyDevice* pDevObj, uint8_t* pSetting);
/** Write the motion-detection setting: 4 bytes. Blocks for a transfer; results as the reading. */
NYXUS_API int32_t XU_MotionDetectSet(NyDevice* pDevObj, const uint8_t* pSetting);

/**
 * Ask for a motion alarm, and acknowledge it.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param pAlarm   1: motion since the last poll, 0: none; undefined after a failure
 * @return 0; -1026, -1036 for NULL; else the register's failure
 *
 * Blocks for 2 transfers, 3 with an alarm. One thread at a time per device.
 */
NYXUS_API int32_t XU_MotionDetectPoll(NyDevice* pDevObj, uint8_t* pAlarm);

NYXUS_END_DECLS

#endif
