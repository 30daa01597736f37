/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The controller chip: catalogue, identification, firmware status, reset.
 */
#ifndef NYXUS_CHIP_H
#define NYXUS_CHIP_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** One chip of the catalogue. */
typedef struct NyBackend {
    uint32_t chip_id;   /**< number of the chip; parts of one chip share it */
    uint32_t family;    /**< index into IC_FAMILY_STR */
    char signature[4];  /**< NUL-terminated; found in the internal firmware version */
    char name[32];      /**< NUL-terminated model name */
    uint32_t bBondIdex; /**< bond variant; tells CEDAR parts apart */
} NyBackend;

/** Families by index. */
enum {
    IC_FAMILY_NONE,
    IC_FAMILY_LARCH,
    IC_FAMILY_FI,
    IC_FAMILY_FI2,
    IC_FAMILY_WILLOW,
    IC_FAMILY_HAWTHORN,
    IC_FAMILY_ROWAN,
    IC_FAMILY_CEDAR,
};

/** The catalogue in search order: the first row whose signature occurs in the version text wins. */
NYXUS_DATA const NyBackend backend_list[];
/** Rows of backend_list. */
NYXUS_DATA int32_t backend_list_count;
/** Names of the families. */
NYXUS_DATA const char* const IC_FAMILY_STR[8];

/** What the running firmware says of itself. */
typedef struct NyFirmwareStatus {
    uint8_t xSpiEnable;    /**< 1: it runs from SPI flash */
    uint8_t xExtFwExist;   /**< 1: external firmware present */
    uint8_t xSetfileExist; /**< 1: sensor set-file present */
    uint8_t reserved;      /**< not written by XU_FwGetStatus() */
} NyFirmwareStatus;

/**
 * Identify the chip by its internal firmware version; fills szIntFwVer and oBackend.
 *
 * @return 0; 3 when the catalogue has no such chip; -1026 for NULL; else the transfer's failure
 *
 * Blocks for 1 transfer, CEDAR parts up to 5. One thread at a time per device.
 */
NYXUS_API int32_t MP_QueryChipInfo(NyDevice* pDevObj);

/**
 * Read firmware status, versions and set-file version into the object. Only the last read can fail
 * the call; the others are best effort.
 *
 * @return 0; -1026 for NULL; else the failure of the set-file version read (-1030 when the camera's
 *         table lacks it)
 *
 * Blocks for up to 5 transfers. One thread at a time per device.
 */
NYXUS_API int32_t MP_QueryModuleInfo(NyDevice* pDevObj);

/**
 * Read the firmware status.
 *
 * @param pDevObj    probed device, borrowed for the call
 * @param pFwStatus  its first three bytes are written, on success
 * @return 0; -1026, -1036 for NULL; -1030 when the camera's table lacks the control; else the
 *         transfer's failure
 *
 * Blocks for up to 2 transfers. One thread at a time per device.
 */
NYXUS_API int32_t XU_FwGetStatus(NyDevice* pDevObj, NyFirmwareStatus* pFwStatus);

/**
 * Read the versions of the external firmware and of its sensor application.
 *
 * @param pDevObj           probed device, borrowed for the call
 * @param pwExtFwVer        external firmware version, written on success
 * @param pwExtSensorApId   sensor application id, written on success
 * @return 0; -1026, -1036 for NULL; -1030 when the camera's table lacks the control; else the
 *         transfer's failure
 *
 * Blocks for 2 transfers. One thread at a time per device.
 */
NYXUS_API int32_t XU_ExtFwGetVer(NyDevice* pDevObj, uint16_t* pwExtFwVer,
                                 uint16_t* pwExtSensorApId);

/**
 * Restart the chip. The camera leaves the bus and comes back, usually with a new address, running
 * what its external ROM holds. Delete the object and create a new one then.
 *
 * @return 0; -1026 for NULL; else the failure of the register write, which is to be expected when
 *         the chip was quick
 *
 * Blocks for 3 transfers. One thread at a time per device.
 */
NYXUS_API int32_t XU_ChipReset(NyDevice* pDevObj);
/** The same as XU_ChipReset(). */
NYXUS_API int32_t DEV_SoftReset(NyDevice* pDevObj);

NYXUS_END_DECLS

#endif
