/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Production: upgrade, erase, dump and compare the firmware in the external ROM.
 *
 * All functions: one thread at a time (the image buffers are process-wide); -1026 for a NULL
 * device, -1036 for another NULL, else 0 or what is said below, or the failure of the step that
 * failed.
 */
#ifndef NYXUS_PRODUCTION_H
#define NYXUS_PRODUCTION_H

#include <nyxus/image.h>

NYXUS_BEGIN_DECLS

/**
 * Program nyxus_fw_bin: unlock, erase (SPI flash), MFi image at 0x6000, firmware body, and the
 * header last, so that an interrupted upgrade leaves no valid header; then lock.
 *
 * On an EEPROM set nyxus_write_cycle_time to 5 first, or writes are lost. An EEPROM keeps its old
 * header over the new body until the new header is complete; the body's checksum keeps it from
 * booting meanwhile. A board that protects its EEPROM by GPIO 0 needs XU_GpioSet(pDevObj, 0,
 * GPIO_LOW) first: the writes vanish otherwise, and 0 is returned. Reading back tells.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param mfi_bin  MFi image of nyxus_mfi_bin_size bytes, or NULL
 * @return 0 (also when only the final locking failed); -1028 when the image is for another chip;
 *         -1036 when nyxus_fw_bin_size is not 0x42 to 32,768 or nyxus_mfi_bin_size exceeds 4,096;
 *         nothing has been written in these cases. After any other failure the ROM is unlocked and
 *         partly programmed: upgrade again.
 *
 * Blocks for seconds to a minute.
 */
NYXUS_API int32_t MP_FwUpgrade(NyDevice* pDevObj, const uint8_t* mfi_bin);

/** Erase the SPI flash (an EEPROM is left as it is). A failure to lock it again is returned. Blocks
 *  for seconds. */
NYXUS_API int32_t MP_FwErase(NyDevice* pDevObj);

/**
 * Write the first bytes of the ROM to a file.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param path     created or overwritten once everything has been read; after a failed transfer it
 *                 is as it was
 * @param size     bytes, at most 32,768 (else -1036, nothing is done); what a smaller ROM answers
 *                 for addresses behind its end is up to it, so see dwExtRomSize
 * @return 0; minus errno (bare) when the file cannot be opened or written; else the failure of a
 *         transfer
 *
 * Prints progress marks on standard error. Blocks for the transfers of XuExtRomRead().
 */
NYXUS_API int32_t MP_FwDump(NyDevice* pDevObj, const char* path, uint32_t size);

/**
 * Compare the ROM with nyxus_fw_bin over nyxus_fw_bin_size bytes. Dumps the first 512 bytes on
 * standard error and writes all of them to "dump.bin" in the current directory.
 *
 * @return 0 when equal; -1 (bare) when not; -(0x8000 + errno) when dump.bin cannot be opened,
 *         whatever the comparison says (-32789 where it is a directory). One that could be written
 *         in part only fails nothing. A failed read is returned when nothing differs: what could
 *         not be read counts as 0xFF
 *
 * Blocks for the transfers of XuExtRomRead().
 */
NYXUS_API int32_t MP_FwCompare(NyDevice* pDevObj);

/**
 * Versions that the probe found.
 *
 * @param pDevObj       probed device, borrowed for the call
 * @param pwExtFwVer    external firmware version
 * @param szSetfileVer  set-file version text, 12 bytes, always terminated
 * @return 0
 *
 * Does not block.
 */
NYXUS_API int32_t MP_FwRevision(NyDevice* pDevObj, uint16_t* pwExtFwVer, char* szSetfileVer);

NYXUS_END_DECLS

#endif
