/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Single settings of the camera, and the wrapper through which its memories are reached.
 *
 * All functions: one thread at a time per device; -1026 for a NULL device, -1036 for another NULL,
 * -1030 when the camera's table lacks the control, else the transfer's failure. A getter of one
 * byte writes it only on success; what the others fill is undefined after a failure.
 */
#ifndef NYXUS_ACCESS_H
#define NYXUS_ACCESS_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** Bits of the wrapper's first byte; the low bits carry the number of data bytes. */
enum {
    XU_FLAG_READ = 0x00,
    XU_FLAG_WRITE = 0x80,
    XU_FLAG_ERASE = 0x40,
    XU_FLAG_WRITE_OLD = 0xA0, /**< external-ROM write on firmware without an XU version */
};

/** The record that carries a memory access: flags and length, address, data. Its length on the wire
 *  is the control's (11 or 35). */
typedef struct NyWrapper {
    uint8_t flags;        /**< XU_FLAG_* and the number of data bytes */
    uint8_t address_high; /**< bits 15 to 8 */
    uint8_t address_low;  /**< bits 7 to 0 */
    uint8_t data[32];     /**< 8 of them on controls of 11 bytes */
} NyWrapper;

/** Send a wrapper on a memory control (only the low byte of bSelector counts). Blocks for a
 *  transfer. */
NYXUS_API int32_t XuSetWrapper(NyDevice* pDevObj, int32_t bSelector, NyWrapper* pWrapper);
/** Send a wrapper, then read the answer into it. Only the read can fail the call. Blocks for 2
 *  transfers. */
NYXUS_API int32_t XuGetWrapper(NyDevice* pDevObj, int32_t bSelector, NyWrapper* pWrapper);

/** Read the flip state: 0 or 2 (not 1). Blocks for a transfer. */
NYXUS_API int32_t XuGetFlip(NyDevice* pDevObj, uint8_t* pFlip);
/** Flip the picture upside down; only the low byte of bEnable counts. Blocks for a transfer. */
NYXUS_API int32_t XuSetFlip(NyDevice* pDevObj, int32_t bEnable);
/** Read the mirror state: 0 or 1. Blocks for a transfer. */
NYXUS_API int32_t XuGetMirror(NyDevice* pDevObj, uint8_t* pMirror);
/** Mirror the picture left to right; only the low byte of bEnable counts. Blocks for a transfer. */
NYXUS_API int32_t XuSetMirror(NyDevice* pDevObj, int32_t bEnable);

/** Read the set-file version text: at most 11 bytes, which need not be terminated. pBuf has room
 * for the control's length, 11 at least. Blocks for a transfer. */
NYXUS_API int32_t XuGetSetfileVer(NyDevice* pDevObj, char* pBuf);

/** Tell the firmware the type of the external ROM (EXTROM_TYPE_SPI or EEPROM size / 128). Blocks
 * for a transfer. */
NYXUS_API int32_t XuSetExtRomType(NyDevice* pDevObj, uint8_t bExtRomType);

/** Read the write-protect control: 1 byte, 0 = writes allowed. Blocks for a transfer. */
NYXUS_API int32_t XuGetWriteProtect(NyDevice* pDevObj, uint8_t* pBuf);
/** Set the write-protect control; only the low byte of bProtect counts. Blocks for a transfer. */
NYXUS_API int32_t XuSetWriteProtect(NyDevice* pDevObj, int32_t bProtect);

/** Read the OSD reply buffer: the control's length, at most 18 bytes are written. Blocks for a
 *  transfer. */
NYXUS_API int32_t XuGetOsd(NyDevice* pDevObj, uint8_t* pBuf);
/** Send an OSD command: pBuf holds 18 bytes. Blocks for a transfer. */
NYXUS_API int32_t XuSetOsd(NyDevice* pDevObj, const uint8_t* pBuf);

/** Select the 64 KiB block of the external ROM that 16-bit addresses refer to. Blocks for a
 *  transfer. */
NYXUS_API int32_t XuSetFlashBlockIndex(NyDevice* pDevObj, uint16_t wIndex);

/** Read the status register of the SPI flash; bit 0 = busy. Blocks for 2 transfers. */
NYXUS_API int32_t XuGetSpiStatus(NyDevice* pDevObj, uint8_t* pStatus);
/** Write the status register of the SPI flash, then sleep oFlashInfo.bTwsr milliseconds. Blocks for
 *  a transfer and that sleep (up to 255 ms). */
NYXUS_API int32_t XuSetSpiStatus(NyDevice* pDevObj, uint8_t bStatus);

/** Let the controller erase the whole external ROM; returns when the command is accepted, the erase
 *  goes on. Blocks for a transfer. */
NYXUS_API int32_t XuExtRomErase(NyDevice* pDevObj);

/** Set the wait after every write by 512 bytes, in milliseconds; only the low byte of ms counts.
 *  Process-wide; one thread at a time. Does not block. */
NYXUS_API void XU_SetWriteCycleTime(int32_t ms);

NYXUS_END_DECLS

#endif
