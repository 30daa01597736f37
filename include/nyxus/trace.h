/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Diagnostic output on standard error, gated by one process-wide bit mask.
 *
 * A gated line begins with the time stamp "[seconds.milliseconds]" and the name of the exported
 * function that it belongs to; nyxus/extensions.h has a callback that takes the place of the
 * output. What ignores the mask: the hex dump, the progress marks, "Cannot found appropriate XU
 * table" and "Identify SPI flash FAILED", and libuvc's own messages; on standard output, the block
 * selections of XuExtRomWrite() and "Wrong libusb device" of init_uvc_video().
 */
#ifndef NYXUS_TRACE_H
#define NYXUS_TRACE_H

#include <nyxus/export.h>
#include <sys/time.h>

NYXUS_BEGIN_DECLS

/** Masks as the library tests them: a line is printed when *all* bits of its mask are set. */
enum {
    NY_TRACE_ERROR = 0x1080, /**< failures, and calls that passed a failure on */
    NY_TRACE_INFO = 0x0880,  /**< steps of configuration calls */
    NY_TRACE_DEBUG = 0x0480, /**< packet dumps, control lengths learnt from the camera */
    NY_TRACE_SPI = 0x8080,   /**< SPI commands and bus-ready polls; in no preset, so add it:
                                  ny_trace_param |= NY_TRACE_SPI */
    NY_TRACE_ENUM = 0x0080,  /**< device enumeration */
    NY_TRACE_STEP = 0x0040,  /**< "<INFO>" milestones and execution times, without time stamp */
    NY_TRACE_WARN = 0x0010,  /**< "<WARNING>" lines, without time stamp */
};

/** The trace mask; 0 (silent) at load time. */
NYXUS_DATA uint32_t ny_trace_param;
/** Scratch: time of the last line that carried a time stamp, of any thread. */
NYXUS_DATA struct timeval ny_tv;
/** Start of the execution timer. */
NYXUS_DATA struct timeval ny_tv_start;
/** Interval that NyPrintTimeInterval() measured last. */
NYXUS_DATA struct timeval ny_tv_interval;

/**
 * Set the trace mask from a preset.
 *
 * @param level  1: milestones and enumeration (0x3FF); 2: debug lines too (0x7FF); 3: failures and
 *               information too (0x1FFF); anything else: nothing (0x0F). None has the SPI lines,
 *               see NY_TRACE_SPI
 *
 * One thread at a time.
 */
NYXUS_API void NyTraceVerbose_level(int32_t level);

/**
 * Hex dump to standard error, 16 bytes a row, whatever the trace mask.
 *
 * @param dwBase  address printed for the first byte
 * @param pData   the bytes, borrowed for the call; may be NULL when dwLen is 0
 * @param dwLen   number of bytes; 0 prints the column header only
 * @param xAscii  also print the row as characters
 *
 * Thread-safe; lines of several threads may interleave.
 */
NYXUS_API void NyPrintBuf(uint32_t dwBase, const uint8_t* pData, uint32_t dwLen, bool xAscii);

/**
 * One step of a progress bar on standard error, whatever the trace mask: a '#', or the percentage
 * and a line end where the low 16 bits of dwCurrent are a multiple of 512. The mark whose low 16
 * bits equal dwTotal ends the line with 100%.
 *
 * @param dwCurrent  units done
 * @param dwTotal    units in all; up to 511 print nothing
 *
 * Thread-safe.
 */
NYXUS_API void NyPrintProgress(int32_t dwCurrent, uint32_t dwTotal);

/** Start the execution timer. One thread at a time. */
NYXUS_API void NyPrintTimeStart(void);

/**
 * Measure the time since NyPrintTimeStart() into ny_tv_interval, and print it as a milestone.
 *
 * Where the microseconds of the start do not lie below those of the end, the interval has a second
 * less, and its fraction is their plain difference (10.9 s to 12.1 s reads 1.800, 10.5 s to 12.5 s
 * reads 1.0). One thread at a time.
 */
NYXUS_API void NyPrintTimeInterval(void);

NYXUS_END_DECLS

#endif
