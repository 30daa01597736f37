/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Erasing and unlocking the external ROM, and the reserved area of the SPI flash.
 *
 * All functions: one thread at a time per device; -1026 for a NULL device, -1036 for another NULL,
 * else 0 or what is said below, or the failure of a transfer or of a wait for the flash (-16).
 * Nothing is rolled back on failure.
 */
#ifndef NYXUS_ROM_H
#define NYXUS_ROM_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** External-ROM address of the reserved area. */
enum { SPI_RESERVED_ADDR = 0x7F00 };

/** Erase by an erase command at a 16-bit address, and wait for it (up to 3 s of polling: -16).
 *  Blocks for 20 transfers or more. */
NYXUS_API int32_t XU_SpiCmdErase(NyDevice* pDevObj, uint16_t wAddr, uint8_t bCmd);
/** The same at a 24-bit address; higher bits are not sent. */
NYXUS_API int32_t XU_SpiCmdEraseDW(NyDevice* pDevObj, uint32_t dwAddr, uint8_t bCmd);
/** Erase the block at (wBlockId * 0x1000) & 0xFFFF by the part's block-erase command. */
NYXUS_API int32_t XU_SpiEraseBlockById(NyDevice* pDevObj, uint16_t wBlockId);

/** Erase the whole flash, or its first block where the part has no chip erase. Waits up to 5 s of
 *  polling (-16). The flash must be write-enabled. */
NYXUS_API int32_t XU_SpiEraseChip(NyDevice* pDevObj);

/**
 * Erase the 64 KiB blocks that hold a byte range and write back what lay around it. For SPI flash
 * only: an EEPROM, which erases nothing, would have 0xFF written over what lies around the range.
 *
 * Only ranges in the first block (dwAddr 0, up to 0x10000 bytes) keep everything around them: the
 * erase commands always address the first block, and the write-back behind the range takes its
 * length from dwLen alone.
 *
 * Not safe against failures: refused read requests, block selections and erase commands are not
 * noticed (stale bytes are written back then, and 0 is returned), and it is not atomic. A part
 * whose block erase is 0x52 clears 32 KiB only. On cameras with several 64 KiB blocks the last one
 * stays selected: call XuSetFlashBlockIndex(pDevObj, 0) before the ROM is used again.
 *
 * @return 0; -1035 when there is no memory for the blocks; the failures of MP_ExtRomWriteEnable()
 *
 * Blocks for many seconds. One thread at a time per device.
 */
NYXUS_API int32_t XU_ExtRomEraseDWORD(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen);

/** Set or clear the block protection of the flash; up to 6 attempts, each of about
 *  300 ms and 15 transfers or more.
 *  @return 0; -1033 when the flash did not confirm it */
NYXUS_API int32_t XU_SpiBlockProtect(NyDevice* pDevObj, bool xEnable);
/** The same for boards that protect by other bits and need no write enable first. */
NYXUS_API int32_t XU_SpiBlockProtect_for_customer_IB(NyDevice* pDevObj, bool xEnable);

/**
 * Unlock or lock the external ROM in the way of its type and controller generation.
 *
 * @param pDevObj      probed device, borrowed for the call
 * @param bExtRomType  EXTROM_TYPE_SPI, anything else is an EEPROM
 * @param xEnable      true unlocks
 * @return 0; -16 when the flash did not follow; -1033 (see XU_SpiBlockProtect())
 *
 * Blocks for 6 transfers or more on cameras with xFeatureXU, 1 transfer for an
 * EEPROM; for an SPI flash on others as XU_SpiBlockProtect() and XU_GpioSet().
 */
NYXUS_API int32_t MP_ExtRomWriteEnable(NyDevice* pDevObj, uint8_t bExtRomType, bool xEnable);

/**
 * Read the reserved area. Looks at the ROM once more, as MP_QueryExtRom() does.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param wLen     bytes, at most 256
 * @param pBuf     receives them
 * @return 0; -1 (bare) for a larger wLen, and on a camera without SPI flash; the failures of
 *         MP_QueryExtRom()
 *
 * Blocks for MP_QueryExtRom() and XuExtRomRead().
 */
NYXUS_API int32_t XU_SpiGetReservedArea(NyDevice* pDevObj, uint16_t wLen, uint8_t* pBuf);
/** Program the reserved area; it is not erased first, so only 1 bits become 0. The same
 *  results, and those of MP_ExtRomWriteEnable(). */
NYXUS_API int32_t XU_SpiSetReservedArea(NyDevice* pDevObj, uint16_t wLen, const uint8_t* pBuf);

NYXUS_END_DECLS

#endif
