/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Fingerprint-reader boards: power, sensor, LED, touch, modes, and the customer's EEPROM window.
 *
 * All functions: one thread at a time per device; -1026 for a NULL device, -1036 for another NULL,
 * else 0 or what is said below, or the failure of a transfer.
 */
#ifndef NYXUS_FINGERPRINT_H
#define NYXUS_FINGERPRINT_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** Positive results of the EEPROM functions (bare); nothing has been sent. */
enum {
    SG_EEPROM_BAD_END = 133,   /**< the range ends beyond 0x8000 */
    SG_EEPROM_BAD_START = 134, /**< the range starts outside 0x2400 to 0x7FFF */
};

/** Automatic power: 0 or 1, else -1 (bare); only the low byte counts. Blocks for a transfer. */
NYXUS_API int32_t SG_SetAutoPower(NyDevice* pDevObj, int32_t bEnable);
/** Reset and re-initialise the sensor. Blocks for a transfer. */
NYXUS_API int32_t SG_SetSensorResetInit(NyDevice* pDevObj);
/** Pulse the sensor's reset pin. Blocks for a transfer. */
NYXUS_API int32_t SG_SetSensorResetPin(NyDevice* pDevObj);
/** Illumination: 0 or 1, else -1 (bare); only the low byte counts. Blocks for a transfer. */
NYXUS_API int32_t SG_LedControl(NyDevice* pDevObj, int32_t bOn);
/** Touch state as the board encodes it. Blocks for 2 transfers. */
NYXUS_API int32_t SG_TouchStatus(NyDevice* pDevObj, uint8_t* pStatus);
/** USB-speed flag, 0 or 1. Blocks for 2 transfers. */
NYXUS_API int32_t SG_UsbSpeed(NyDevice* pDevObj, uint8_t* pSpeed);
/** Leave snapshot mode. @return 0, always. Blocks for 2 transfers and 100 ms. */
NYXUS_API int32_t SG_StreamModeEnable(NyDevice* pDevObj);
/** Enter snapshot mode. @return 0, always. Blocks for a transfer. */
NYXUS_API int32_t SG_SnapshotModeEnable(NyDevice* pDevObj);
/** Trigger a snapshot. @return 0, always. Blocks for a transfer. */
NYXUS_API int32_t SG_SnapshotModeTrigger(NyDevice* pDevObj);

/** Read the customer's EEPROM window, by 512 bytes. @return 0, 133 or 134 (see above); -1030 on
 *  cameras without the 512-byte path. Blocks for 2 transfers per 512 bytes. */
NYXUS_API int32_t SG_EepromRead(NyDevice* pDevObj, uint16_t wAddr, uint16_t wLen, uint8_t* pBuf);

/**
 * Write the customer's EEPROM window: unlocks it (GPIO 0 low, write protect off), writes page by
 * page, locks it again. Sets the time of XU_SetWriteCycleTime() to 5 ms for good; the pages
 * themselves are paced by nyxus_write_cycle_time, so set that to 5, too.
 *
 * @return 0, 133 or 134 (see above); after a failed write the window stays unlocked
 *
 * Blocks for 20 transfers and the pages', see XuCtrlSeqContext().
 */
NYXUS_API int32_t SG_EepromWrite(NyDevice* pDevObj, uint16_t wAddr, uint16_t wLen,
                                 const uint8_t* pBuf);

/** Write external-ROM bytes in pages of 32, without unlocking. @return the result of the last page;
 *  failures of earlier ones are not reported. Blocks as XuCtrlSeqContext() for each. */
NYXUS_API int32_t SG_XuExtRomWrite(NyDevice* pDevObj, uint16_t wAddr, uint16_t wLen,
                                   const uint8_t* pBuf);

NYXUS_END_DECLS

#endif
