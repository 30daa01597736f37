/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Firmware and MFi images in memory.
 *
 * Nothing here talks to a camera. The image buffers are process-wide: one thread at a time.
 */
#ifndef NYXUS_IMAGE_H
#define NYXUS_IMAGE_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** Sizes, bytes. */
enum {
    NYXUS_FW_BIN_CAPACITY = 32768, /**< largest firmware image */
    NYXUS_MFI_BIN_CAPACITY = 4096, /**< largest MFi image */
    NYXUS_MFI_ROM_ADDR = 0x6000,   /**< where an MFi image lies in the external ROM */
};

/** The firmware image. */
NYXUS_DATA uint8_t nyxus_fw_bin[NYXUS_FW_BIN_CAPACITY];
/** Its real size in bytes (trailing 0xFF not counted). A failed MP_FwLoad() leaves the low 16 bits
 *  of its code here. */
NYXUS_DATA uint16_t nyxus_fw_bin_size;
/** Room for an MFi image. */
NYXUS_DATA uint8_t nyxus_mfi_bin[NYXUS_MFI_BIN_CAPACITY];
/** Bytes of an MFi image to program; the host sets it. */
NYXUS_DATA uint16_t nyxus_mfi_bin_size;

/** Size of an image without its trailing 0xFF bytes; 1 when there is nothing else. -770 for NULL.
 *  Thread-safe. */
NYXUS_API int32_t MP_BinGetRealSize(const uint8_t* bin, uint32_t size);

/**
 * Load an image file.
 *
 * @param buf       receives the image
 * @param bin_size  its room, bytes
 * @param path      file name
 * @return the real size; -782 for a file larger than bin_size, which stays open for as long as the
 *         process lives; -(0x8000 + errno) when it cannot be opened or read; -770 for NULL
 *
 * Blocks for the file system.
 */
NYXUS_API int32_t MP_BinLoadFromFile(uint8_t* buf, uint32_t bin_size, const char* path);

/** Load the firmware image into nyxus_fw_bin. @return 0, always: look at nyxus_errno (set it to 0
 *  first) for a failure. */
NYXUS_API int32_t MP_FwLoad(const char* path);

/** Print the header of an MFi image when failures are traced. -770 for NULL. */
NYXUS_API int32_t MP_BinPrintMFiInfo(const uint8_t* mfi_bin);

/**
 * Write a serial number into an MFi image: into its USB string descriptor (as UTF-16LE, the length
 * byte stays) and into its serial-number record (as ASCII). The checksum is not recomputed. Dumps
 * the descriptor on standard error before and after.
 *
 * @param mfi_bin  4,096 bytes; nothing outside them is touched whatever the header says
 * @param sn       NUL-terminated text
 * @return 0; -770 for NULL
 */
NYXUS_API int32_t MP_BinSetSerialNum(uint8_t* mfi_bin, const char* sn);

/** Release an MFi image that the caller allocated with malloc(); NULL is ignored. */
NYXUS_API void MP_FwFreeMFiBin(void* ptr);

NYXUS_END_DECLS

#endif
