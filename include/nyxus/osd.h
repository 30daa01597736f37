/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * On-screen display: text, date-time stamp, windows and colours over the video.
 *
 * The records are the firmware's and pass through uninterpreted. The bytes named here are those of
 * the simulated camera's firmware, with positions and sizes in cells of 16x16 pixels; another
 * firmware may differ.
 *
 * All functions: one thread at a time per device; -1026 for a NULL device, -1036 for another NULL,
 * -1030 when the camera has no OSD, else 0 or the failure of a transfer. Setters block for a
 * transfer, getters for 2. A getter writes its result only on success.
 */
#ifndef NYXUS_OSD_H
#define NYXUS_OSD_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** Date-time stamp. */
typedef struct OsdDatetime {
    /** Year - 2000, month, day, hour, minute, second, column, row. */
    uint8_t data[8];
} OsdDatetime;

/** A filled window. */
typedef struct OsdWindow {
    /** Index 0 to 3, column, row, width, height, shown (0 or 1), three unused. */
    uint8_t data[9];
} OsdWindow;

/** Colours. */
typedef struct OsdColor {
    /** Text, text background, windows: Y, Cb, Cr each. */
    uint8_t data[9];
} OsdColor;

/** Show the OSD; only the low byte counts. */
NYXUS_API int32_t XU_OsdSetEnable(NyDevice* pDevObj, int32_t bEnable);
/** Read whether the OSD is shown: 0 or 1. */
NYXUS_API int32_t XU_OsdGetEnable(NyDevice* pDevObj, uint8_t* pEnable);
/** Clear texts, windows, stamp and colours. */
NYXUS_API int32_t XU_OsdReset(NyDevice* pDevObj);
/** Send the firmware's header command, which has no arguments. */
NYXUS_API int32_t XU_OsdSetHeader(NyDevice* pDevObj);
/** Set the clock of the stamp and its place. */
NYXUS_API int32_t XU_OsdSetDatetime(NyDevice* pDevObj, const OsdDatetime* pDatetime);
/** Read the clock of the stamp and its place. */
NYXUS_API int32_t XU_OsdGetDatetime(NyDevice* pDevObj, OsdDatetime* pDatetime);
/** Set a line of text: pText always holds 16 bytes, terminated or not. */
NYXUS_API int32_t XU_OsdSetString(NyDevice* pDevObj, uint8_t bIndex, const uint8_t* pText);
/** Read a line of text: pText has room for 16 bytes; no terminator is added. */
NYXUS_API int32_t XU_OsdGetString(NyDevice* pDevObj, uint8_t bIndex, uint8_t* pText);
/** Set a window. */
NYXUS_API int32_t XU_OsdSetWindow(NyDevice* pDevObj, const OsdWindow* pWindow);
/** Read the window that was set last. */
NYXUS_API int32_t XU_OsdGetWindow(NyDevice* pDevObj, OsdWindow* pWindow);
/** Set all colours. */
NYXUS_API int32_t XU_OsdSetColor(NyDevice* pDevObj, const OsdColor* pColor);
/** Read all colours. */
NYXUS_API int32_t XU_OsdGetColor(NyDevice* pDevObj, OsdColor* pColor);

/** Show the date-time stamp (register 0x0544, bit 1); only the low byte counts. Blocks for 3
 *  transfers. */
NYXUS_API int32_t XU_OsdEnableDatetime(NyDevice* pDevObj, int32_t bEnable);
/** Make the OSD's background transparent (register 0x0544, bit 4); only the low byte counts. Blocks
 *  for 3 transfers. */
NYXUS_API int32_t XU_OsdEnableTransparent(NyDevice* pDevObj, int32_t bEnable);

NYXUS_END_DECLS

#endif
