/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * How failures are reported: a negative 32-bit status, and a message per thread.
 *
 * Success is 0 (a few getters return a positive count). The absolute value of a failure is a 16-bit
 * number: its high byte names the origin, its low byte the kind. The message variables are never
 * cleared: they describe the last failure on their thread, also after later successes.
 */
#ifndef NYXUS_ERROR_H
#define NYXUS_ERROR_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** Status codes. The bare ones (marked) leave the message of this thread untouched. */
enum {
    NYXUS_OK = 0,
    NYXUS_E_FAILED = -1,         /**< bare: general failure of a composite operation */
    NYXUS_E_SPI_COMMAND = -9,    /**< bare: an SPI command with answer took longer than 500 ms */
    NYXUS_E_BUSY = -16,          /**< bare: a status wait ran out of attempts (that before a
                                      write to SPI flash included), or an LED update is
                                      pending */
    NYXUS_E_NO_SUPPORT = -38,    /**< bare: EEPROMs cannot be identified */
    NYXUS_E_LIB_NULL = -258,     /**< NULL argument of a library-wide call */
    NYXUS_E_INI_DIGIT = -527,    /**< bad digit in a serial-number field */
    NYXUS_E_BIN_NULL = -770,     /**< NULL argument of an image call */
    NYXUS_E_BIN_SIZE = -782,     /**< image file larger than its buffer */
    NYXUS_E_DEVICE_NULL = -1026, /**< NULL device object */
    NYXUS_E_MISMATCH = -1028,    /**< driver type or firmware signature does not match */
    NYXUS_E_UNSUPPORTED = -1029, /**< read-ID command of the flash is not supported */
    NYXUS_E_INVALID = -1030,     /**< unknown control or read-ID command */
    NYXUS_E_TIMEOUT = -1033,     /**< block protection was not confirmed */
    NYXUS_E_NO_MEMORY = -1035,   /**< out of memory */
    NYXUS_E_RANGE = -1036,       /**< argument out of range, or NULL where not named above */
};

/**
 * Status of a failed libusb call: -(0x4000 + n), n = minus the libusb code.
 * -16388 is "no such device", -16393 a stalled control, -16387 "access denied", -16390 "busy".
 */
#define NYXUS_E_LIBUSB(rc) (-(0x4000 + (-(rc)&0xFF)))

/** Status of a failed standard-library call: -(0x8000 + n), n = errno & 0xFF. */
#define NYXUS_E_SYSTEM(err) (-(0x8000 + ((err)&0xFF)))

/** Code of the last failure on this thread. */
NYXUS_DATA __thread int32_t nyxus_errno;
/**
 * Status of the last inner call whose failure was passed on on this thread. Functions that look at
 * the status of every exchange (transfers of nyxus/memory.h, and so all that read and write
 * registers; the OSD, H.264 and fingerprint functions) store it here, so that it may be 0 after a
 * success, too. It says nothing by itself: look at it where a function's description tells you to,
 * and set it to 0 before.
 */
NYXUS_DATA __thread int32_t nyxus_rv;
/** Detail of the last failure on this thread, without its place; at most 127 characters. */
NYXUS_DATA __thread char nyxus_errtmp[128];
/** "UNIT(LINE): <TAG> detail" of the last failure on this thread; at most 255 characters, so that
 *  it holds more of a long detail than nyxus_errtmp. A unit covers several source files:
 * docs/errors.md says which. */
NYXUS_DATA __thread char nyxus_errmsg[256];
/** Room for the host's own text; the library never writes it. */
NYXUS_DATA __thread char nyxus_errstr[256];

NYXUS_END_DECLS

#endif
