/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * On-screen display: text, date-time stamp, windows and colours over the video.
 *
 * The records are the firmware's and pass through uninterpreted.
 *
 * All functions: one thread at a time per device; -1026 for a NULL device, -1036 for another NULL,
 * -1030 when the camera has no OSD, else 0 or the failure of a transfer. Setters block for a
 * transfer, getters for 2. A getter writes its result only on success.
 */
#ifndef NYXUS_OSD_H
#define NYXUS_OSD_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

typedef struct OsdDatetime {
    uint8_t data[8];
} OsdDatetime;

typedef struct OsdWindow {
    uint8_t data[9];
} OsdWindow;

typedef struct OsdColor {
    uint8_t data[9];
} OsdColor;

/** Show the OSD; only the low byte counts. */
NYXUS_API int32_t XU_OsdSetEnable(NyDevice* pDevObj, int32_t bEnable);
NYXUS_API int32_t XU_OsdGetEnable(NyDevice* pDevObj, uint8_t* pEnable);
NYXUS_API int32_t XU_OsdReset(NyDevice* pDevObj);
NYXUS_API int32_t XU_OsdSetHeader(NyDevice* pDevObj);
NYXUS_API int32_t XU_OsdSetDatetime(NyDevice* pDevObj, const OsdDatetime* pDatetime);
NYXUS_API int32_t XU_OsdGetDatetime(NyDevice* pDevObj, OsdDatetime* pDatetime);
/** A line of text: always 16 bytes, terminated or not. */
NYXUS_API int32_t XU_OsdSetString(NyDevice* pDevObj, uint8_t bIndex, const uint8_t* pText);
NYXUS_API int32_t XU_OsdGetString(NyDevice* pDevObj, uint8_t bIndex, uint8_t* pText);
NYXUS_API int32_t XU_OsdSetWindow(NyDevice* pDevObj, const OsdWindow* pWindow);
NYXUS_API int32_t XU_OsdGetWindow(NyDevice* pDevObj, OsdWindow* pWindow);
NYXUS_API int32_t XU_OsdSetColor(NyDevice* pDevObj, const OsdColor* pColor);
NYXUS_API int32_t XU_OsdGetColor(NyDevice* pDevObj, OsdColor* pColor);

/** Show the date-time stamp (register 0x0544, bit 1); only the low byte counts. Blocks for 3
 *  transfers. */
NYXUS_API int32_t XU_OsdEnableDatetime(NyDevice* pDevObj, int32_t bEnable);
/** Make the OSD's background transparent (register 0x0544, bit 4); only the low byte counts. Blocks
 *  for 3 transfers. */
NYXUS_API int32_t XU_OsdEnableTransparent(NyDevice* pDevObj, int32_t bEnable);

NYXUS_END_DECLS

#endif
