/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Reads and writes of any length: registers, sensor, MCU data, external ROM.
 *
 * A transfer is a run of exchanges of 8 or 32 bytes; one that fails half-way leaves what it has
 * done. Each exchange prints a progress mark (nyxus/trace.h) when the transfer is longer than 511
 * bytes; while nothing is traced, marks that come within 20 ms are written together.
 *
 * All functions: buffers hold the requested length and are borrowed for the call; one thread at a
 * time per device; 0 on success, -1026 for a NULL device, -1036 for a NULL buffer (unless the
 * length is 0), else the failure of the exchange; -16 (bare) where a write waits for the bus of an
 * SPI flash, see XuCtrlSeqContext(). A length of 0 moves no data; blocks are selected all the same
 * by the functions that always select them.
 */
#ifndef NYXUS_MEMORY_H
#define NYXUS_MEMORY_H

#include <nyxus/access.h>

NYXUS_BEGIN_DECLS

/**
 * One sequenced transfer inside a 16-bit address space; the address wraps at 0x10000.
 *
 * Writes to the external ROM are paced: SPI flash by a bus-ready poll before every exchange (-16,
 * bare, when it is still busy after 3 s of polling), EEPROM by a sleep of nyxus_write_cycle_time
 * milliseconds after it.
 *
 * @param pDevObj    probed device, borrowed for the call
 * @param bSelector  ZRV_XU_REG, ZRV_XU_SENSOR, ZRV_XU_MCU or ZRV_XU_EXT_ROM
 * @param bFlag      wrapper flag; bit 7 set = write
 * @param wAddr      start address
 * @param dwLen      bytes, at most 65,536 make sense
 * @param pBuf       dwLen bytes, sent or filled
 *
 * Blocks for 2 transfers per 8 bytes (external ROM with xFeatureXU: per 32 bytes) of a read; 1 to 4
 * per exchange of a write, plus the pacing.
 */
NYXUS_API int32_t XuCtrlSeqContext(NyDevice* pDevObj, uint8_t bSelector, uint8_t bFlag,
                                   uint16_t wAddr, uint32_t dwLen, uint8_t* pBuf);

/** Read controller registers (XDATA). Address and length count 16 bits. */
NYXUS_API int32_t XuRegRead(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf);
/** Write controller registers (XDATA). Address and length count 16 bits. */
NYXUS_API int32_t XuRegWrite(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, const uint8_t* pBuf);
/** Read sensor registers. Address and length count 16 bits. */
NYXUS_API int32_t XuSensorRead(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf);
/** Write sensor registers. Address and length count 16 bits. */
NYXUS_API int32_t XuSensorWrite(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen,
                                const uint8_t* pBuf);
/** Read MCU data. Address and length count 8 bits. */
NYXUS_API int32_t XuMcuDataRead(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf);
/** Write MCU data. Address and length count 8 bits. */
NYXUS_API int32_t XuMcuDataWrite(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen,
                                 const uint8_t* pBuf);

/** Read the external ROM from a 32-bit address. Ranges that cross 64 KiB select the blocks behind
 *  the first one by ZRV_XU_FLASH_BLOCK and leave the last one selected. The first one is selected
 * only where the XU version's prefix is 0x4646: on other cameras an address from 0x10000 on reads
 * whatever block is selected. */
NYXUS_API int32_t XuExtRomRead(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen, uint8_t* pBuf);
/** Write the external ROM, which must be write-enabled and, if it is SPI flash, erased. Blocks are
 *  selected as by XuExtRomRead(); each selection is reported on standard output.
 *  @return -16 (bare) when an SPI flash stays busy for 3 s */
NYXUS_API int32_t XuExtRomWrite(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen,
                                const uint8_t* pBuf);

/** The record of the 512-byte path: length and address are big-endian. It has no direction: a
 * SET_CUR carries data or asks for the data that the next GET_CUR returns. */
typedef struct NyWrapper512 {
    uint8_t length_high;  /**< bytes of data that count, bits 15 to 8 */
    uint8_t length_low;   /**< bits 7 to 0 */
    uint8_t address_high; /**< bits 15 to 8 */
    uint8_t address_low;  /**< bits 7 to 0 */
    uint8_t data[512];    /**< sent, or received */
} NyWrapper512;

/** Send a 512-byte wrapper, then read the answer into it. Only the read can fail the call. Blocks
 * for 2 transfers. -1030 on cameras without the 512-byte path. */
NYXUS_API int32_t XuGetWrapper512(NyDevice* pDevObj, NyWrapper512* pWrapper512);
/** Send a 512-byte wrapper. Blocks for a transfer. */
NYXUS_API int32_t XuSetWrapper512(NyDevice* pDevObj, NyWrapper512* pWrapper512);

/**
 * One sequenced transfer by 512 bytes inside a 16-bit address space; the address wraps at 0x10000.
 * After every write it sleeps the time of XU_SetWriteCycleTime(). Prints progress when
 * nyxus_print_progress is set.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param bFlag    bit 7 set = write
 * @param wAddr    start address
 * @param dwLen    bytes
 * @param pBuf     dwLen bytes, sent or filled
 *
 * Blocks for 2 transfers per 512 bytes of a read, 1 of a write.
 */
NYXUS_API int32_t XuCtrlSeqContext512(NyDevice* pDevObj, uint8_t bFlag, uint16_t wAddr,
                                      uint32_t dwLen, uint8_t* pBuf);

/** Read the current 64 KiB block of the external ROM by 512 bytes. Address and length count 16
 *  bits. */
NYXUS_API int32_t XuExtRomRead512(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf);

/**
 * Walk a 32-bit address range block by block, and select block 0 at the end.
 *
 * A transfer that fails ends the walk but is *not* returned: the result is that of the last block
 * selection. So a camera without the 512-byte path reads nothing and returns 0. Set nyxus_rv to 0
 * before and look at it after: it is negative then.
 *
 * Every walk selects its blocks by ZRV_XU_FLASH_BLOCK, also inside the first one. Cameras whose
 * table lacks that control (XU versions 0x0100 and 0x0101) always fail with -1030. XuExtRomRead()
 * and XuExtRomWrite() work on all cameras, XuExtRomRead512() on those with the 512-byte path.
 *
 * @param pDevObj    probed device, borrowed for the call
 * @param bFlag      bit 7 set = write
 * @param bSelector  ZRV_XU_EXT_ROM or ZRV_XU_Read_EXT_ROM_512; any other transfers nothing
 * @param dwAddr     start address
 * @param dwLen      bytes
 * @param pBuf       dwLen bytes, sent or filled
 * @return 0, or the failure of the last block selection (-1030: see above)
 *
 * Blocks for the transfers of XuCtrlSeqContext() or XuCtrlSeqContext512(), one per block, and one
 * more.
 */
NYXUS_API int32_t VELKA_DwAddrRead(NyDevice* pDevObj, uint8_t bFlag, uint8_t bSelector,
                                   uint32_t dwAddr, uint32_t dwLen, uint8_t* pBuf);
/** Read a 32-bit address range by 8 or 32 bytes. Not on cameras without block selection, which
 *  return -1030, always: use XuExtRomRead(). See VELKA_DwAddrRead() for other failures. */
NYXUS_API int32_t XuExtRomReadDW(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen, uint8_t* pBuf);
/** Read a 32-bit address range by 512 bytes. Not on cameras without block selection, which return
 *  -1030, always: use XuExtRomRead512(); and not on those without the 512-byte path, which return 0
 *  though nothing is read. See VELKA_DwAddrRead(). */
NYXUS_API int32_t XuExtRomRead512DW(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen,
                                    uint8_t* pBuf);

NYXUS_END_DECLS

#endif
