/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The SPI flash behind the controller: catalogue, command channel, status, identification.
 *
 * All functions that take a device: one thread at a time per device; -1026 for a NULL device, -1036
 * for another NULL, else 0 or what is said below, or the failure of a transfer.
 */
#ifndef NYXUS_FLASH_H
#define NYXUS_FLASH_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** A flash part. The first 11 bytes are also what the controller holds. */
typedef struct __attribute__((packed)) NyFlashInfo {
    uint8_t bParam;        /**< read-ID method for the controller: command and ID length */
    uint8_t bCmdCE;        /**< chip-erase command, 0xFF: none */
    uint8_t bCmdBE;        /**< block-erase command */
    uint8_t bCmdSE;        /**< sector-erase command */
    uint8_t bCmdRDID;      /**< read-ID command: 0x9F, 0x15, 0xAB or 0x90; 0: unknown */
    uint8_t ID[3];         /**< manufacturer, device; a 2-byte ID ends with 0 */
    uint8_t abExtParam[3]; /**< for the controller */
    uint8_t bSize;         /**< capacity = 32 KiB << bSize */
    uint8_t bTwsr;         /**< status-register write time, milliseconds */
    char szName[32];       /**< NUL-padded */
} NyFlashInfo;

/** Approved parts in search order; the last row stands for every other part. */
NYXUS_DATA const NyFlashInfo spi_flash_table[];
/** Rows of spi_flash_table. */
NYXUS_DATA int32_t spi_flash_table_count;

/**
 * Look an ID up in the catalogue and copy its row (the last row if there is none) into oFlashInfo.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param bParam   not used
 * @param pId      3 bytes
 * @return the row, 0 or more; -1 when no row has this ID (bare)
 *
 * Does not block.
 */
NYXUS_API int32_t MP_MatchFlash(NyDevice* pDevObj, uint8_t bParam, const uint8_t* pId);

/** Identify an I2C EEPROM: not possible. @return -38, always (bare). Does not block. */
NYXUS_API int32_t MP_IdentifyEeprom(NyDevice* pDevObj);

/**
 * Send a command to the flash and read its answer.
 *
 * With XU version 0x0003 the controller knows only read-ID commands: the opcode travels alone, and
 * at most 11 answer bytes exist.
 *
 * @param pDevObj   probed device, borrowed for the call
 * @param pCmdBuf   command bytes, opcode first
 * @param bCmdLen   number of them
 * @param pDataBuf  room for the answer, written on success
 * @param bDataLen  its bytes
 * @return 0; -9 when the command took more than 500 ms (bare)
 *
 * Blocks for 9 transfers or more (2 with XU version 0x0003) and up to 500 ms.
 */
NYXUS_API int32_t XU_SpiCmdGet(NyDevice* pDevObj, const uint8_t* pCmdBuf, uint8_t bCmdLen,
                               uint8_t* pDataBuf, uint8_t bDataLen);

/**
 * Send a command without answer. Waits for its end without a limit: on a controller that never ends
 * a command the call returns only when the camera is unplugged.
 *
 * Blocks for 6 transfers or more.
 */
NYXUS_API int32_t XU_SpiCmdSet(NyDevice* pDevObj, const uint8_t* pCmdBuf, uint8_t bCmdLen);

/**
 * Wait until (status & bMask) == bValue. The status is read, then every 2 ms, about dwTimeout / 3
 * times.
 *
 * @param pDevObj    probed device, borrowed for the call
 * @param bMask      bits of the status that count
 * @param bValue     what they shall be
 * @param dwTimeout  nominal milliseconds; 40 reads 14 times, 100 reads 34 times
 * @return 0; -16 when it did not come true (bare)
 *
 * Blocks for 2 transfers and 2 ms per read.
 */
NYXUS_API int32_t XU_SpiWaitStatus(NyDevice* pDevObj, uint8_t bMask, uint8_t bValue,
                                   uint32_t dwTimeout);

/**
 * Wait until the flash is no longer busy; polls every 2 ms.
 *
 * @param pDevObj    probed device, borrowed for the call
 * @param dwTimeout  milliseconds of sleeping
 * @return 0; -16 when it is still busy (bare)
 *
 * Blocks for 2 transfers per poll, and the sleeping.
 */
NYXUS_API int32_t XU_SpiWaitBusReady(NyDevice* pDevObj, uint32_t dwTimeout);

/** Read the controller's copy of the flash information: the first 11 bytes of pFlashInfo.
 *  Blocks for 4 transfers (1 with XU version 0x0003).
 *  @return -1036 for a row of spi_flash_table, which is read-only: take a copy */
NYXUS_API int32_t XU_SpiGetFlashInfo(NyDevice* pDevObj, NyFlashInfo* pFlashInfo);

/** Hand the first 11 bytes of pFlashInfo to the controller. Controllers with XU version 0x0003 keep
 *  their own: nothing is sent, bit 7 of abExtParam[0] is set in the record instead. Blocks for
 *  2 transfers (none with XU version 0x0003).
 *  @return -1036 for a row of spi_flash_table where that bit was to be set: take a copy */
NYXUS_API int32_t XU_SpiSetFlashInfo(NyDevice* pDevObj, NyFlashInfo* pFlashInfo);

/**
 * Read the flash's ID by the method of oFlashInfo.bCmdRDID, match it, and tell the controller.
 * A part that the catalogue lacks keeps its own ID with the parameters of the last row.
 *
 * @return 0; -1030 when bCmdRDID is 0, -1029 when it is unknown; -9 (bare), see XU_SpiCmdGet()
 *
 * Blocks for 11 transfers or more (2 with XU version 0x0003) and up to 500 ms.
 */
NYXUS_API int32_t MP_IdentifyFlash(NyDevice* pDevObj);

/**
 * Find out kind, size and part of the external ROM and tell the firmware; the last step of the
 * probe. Fills xSpiMode, bExtRomType, dwExtRomSize and oFlashInfo.
 *
 * @return 0; the failure of MP_IdentifyFlash() (always -1030 on a new object) when the ROM header
 *         is blank or foreign, or xModuleMode is 0. When the controller's flash information cannot
 * be read, that is 0, too: oFlashInfo is not matched, the firmware is not told, and nyxus_rv has
 *         the failure
 *
 * Blocks for 3 to 22 transfers, more where an SPI command takes its time (up to 500 ms).
 */
NYXUS_API int32_t MP_QueryExtRom(NyDevice* pDevObj);

/** Check that the flash answers as oFlashInfo describes it. @return 1 if it does, 0 if not, and 0
 * for every part whose bParam is not 0x31, 0x24 or 0x2C: that includes those that no row describes.
 * -9 (bare), see XU_SpiCmdGet(). Blocks for up to four commands of that function. */
NYXUS_API int32_t MP_CheckFlashIsSupported(NyDevice* pDevObj);

NYXUS_END_DECLS

#endif
