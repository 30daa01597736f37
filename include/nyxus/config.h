/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Version, process-wide settings, and the host's production configuration block.
 *
 * The settings are plain process-wide data without a lock: set them before you create devices.
 */
#ifndef NYXUS_CONFIG_H
#define NYXUS_CONFIG_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** The settings as one record. No field is range-checked. */
typedef struct NyConfig {
    uint32_t dwTraceParam;   /**< ny_trace_param */
    uint8_t bDriverType;     /**< nyxus_driver_type */
    uint8_t bWriteCycleTime; /**< nyxus_write_cycle_time, milliseconds */
    uint8_t bPrintProgress;  /**< nyxus_print_progress */
} NyConfig;

/** Driver type; only 1 lets devices be created. */
NYXUS_DATA uint8_t nyxus_driver_type;
/** Milliseconds to wait after every EEPROM write of up to 32 bytes; 1 at load time, 0: no wait.
 *  Most EEPROMs need 5 and lose writes that come earlier. */
NYXUS_DATA uint8_t nyxus_write_cycle_time;
/** Non-zero: transfers by 512 bytes print progress. 0 at load time. */
NYXUS_DATA uint8_t nyxus_print_progress;
/** Milliseconds to wait after every write by 512 bytes; 0 at load time. See
 *  XU_SetWriteCycleTime(). */
NYXUS_DATA uint8_t bEepromWriteCycleTime;
/** Slot for the host; no library function reads it. */
NYXUS_DATA uint8_t nyxus_bin_sn_len;
/** Slot for the host; no library function reads it. */
NYXUS_DATA void* nyxus_ini_dict;

/** Production configuration: the host's record of file names and serial-number parts. Texts are
 *  NUL-padded; the flags mean what the host decides. */
typedef struct __attribute__((packed)) NyIni {
    char fw_bin_name[256];  /**< firmware image */
    uint8_t fw_flags[3];    /**< the host's */
    char mfi_bin_name[256]; /**< MFi image */
    uint8_t mfi_flags[2];   /**< the host's */
    char sn_prefix[32];     /**< serial number: first part */
    char sn_number[32];     /**< the part that counts */
    char sn_suffix[32];     /**< last part */
} NyIni;

/** The host's configuration; zero at load time. The library neither reads nor writes it. */
NYXUS_DATA NyIni nyxus_ini;
/** Defaults for it. */
NYXUS_DATA const NyIni nyxus_ini_default;

/**
 * Write the version text "2.0.11" and a line feed.
 *
 * @param version  room for 8 bytes, terminator included
 * @return 0; -258 for NULL
 *
 * Thread-safe. Does not block.
 */
NYXUS_API int32_t LIB_NyxusGetVersion(char* version);

/**
 * Read the settings.
 *
 * @param config  filled on success
 * @return 0; -258 for NULL
 *
 * One thread at a time. Does not block.
 */
NYXUS_API int32_t LIB_NyxusGetConfig(NyConfig* config);

/**
 * Set the settings.
 *
 * @param config  borrowed for the call
 * @return 0; -258 for NULL, nothing is changed then
 *
 * One thread at a time. Does not block.
 */
NYXUS_API int32_t LIB_NyxusSetConfig(const NyConfig* config);

/**
 * Convert hexadecimal text to bytes, two characters a byte; an odd last character is ignored.
 *
 * @param str        NUL-terminated text
 * @param max_bytes  room at buf, bytes
 * @param buf        receives the bytes; a pair that is no number leaves its byte as it was, a pair
 *                   such as "5z" gives 0x05
 * @return number of bytes, 0 or more; -258 for NULL where it would be used (with a max_bytes below
 *         1, nothing is)
 *
 * Thread-safe. Does not block.
 */
NYXUS_API int32_t HexStr2Buf(const char* str, int32_t max_bytes, uint8_t* buf);

/** Customer code of this build: 3. Thread-safe. */
NYXUS_API int32_t GetCustomerCode(void);

/**
 * Check that a serial-number field holds digits only. An empty field passes.
 *
 * @param bHex  true: hexadecimal digits, either case; false: decimal digits
 * @param str   NUL-terminated field
 * @return 0; -527 for another character; -1036 for NULL
 *
 * Thread-safe. Does not block.
 */
NYXUS_API int32_t check_base_char(bool bHex, const char* str);

NYXUS_END_DECLS

#endif
