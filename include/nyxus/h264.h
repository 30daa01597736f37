/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The H.264 encoder: its extension unit and its registers.
 *
 * The published query sends a control's length as the request and the request as the length.
 * Cameras that were built to it understand it; a camera that follows the UVC H.264 payload layout
 * does not. Set nyxus_h264_standard_order for those.
 *
 * All functions: one thread at a time per device; -1026 for a NULL device, -1036 for another NULL,
 * else 0 or the failure of a transfer. A getter writes its result only on success.
 */
#ifndef NYXUS_H264_H
#define NYXUS_H264_H

#include <nyxus/xu.h>

NYXUS_BEGIN_DECLS

/** Controls of the H.264 unit; the number is the selector. */
enum {
    UVCX_RATE_CONTROL_MODE = 0x03,
    UVCX_PICTURE_TYPE_CONTROL = 0x09,
    UVCX_VERSION = 0x0A,
    UVCX_ENCODER_RESET = 0x0B,
    UVCX_BITRATE_LAYERS = 0x0E,
    UVCX_QP_STEPS_LAYERS = 0x0F,
};

/** The controls with their payload lengths, of which the low byte counts. The host may change them,
 *  by requireXUSizeTable() on NY_UNIT_H264 for instance; the probe does not. Process-wide. */
NYXUS_DATA uvc_xu_ctrl uvc_xu_table_h264[];
/** Rows of uvc_xu_table_h264. */
NYXUS_DATA int32_t uvc_xu_table_h264_count;

/** Non-zero: queries go out as bRequest = the request, wLength = the control's length, in the right
 *  direction. 0 at load time: the two are swapped, and every query reads. Process-wide. */
NYXUS_DATA uint8_t nyxus_h264_standard_order;

/** The bitrate payload. */
typedef struct H264BitrateLayers {
    uint16_t wLayerID;         /**< stream layer, 0 for the only one */
    uint32_t dwPeakBitrate;    /**< bit/s */
    uint32_t dwAverageBitrate; /**< bit/s */
} H264BitrateLayers;

/**
 * One request to a control of the H.264 unit.
 *
 * @param pDevObj    probed device, borrowed for the call
 * @param bSelector  UVCX_*; only the low byte counts
 * @param bRequest   UVC_GET_CUR or UVC_SET_CUR; only the low byte counts
 * @param pBuf       as many bytes as uvc_xu_table_h264 says (the functions below take the bytes
 * that they name, whatever it says); never written by a set
 * @return -1030 for an unknown selector
 *
 * Blocks for a transfer.
 */
NYXUS_API int32_t UvcXuCtrlQueryH264(NyDevice* pDevObj, int32_t bSelector, int32_t bRequest,
                                     uint8_t* pBuf);

/** Rate-control mode: 3 bytes, layer (16 bits, little-endian), mode. Blocks for a transfer. */
NYXUS_API int32_t H264GetRateCtrlMode(NyDevice* pDevObj, uint8_t* pBuf);
/** Set the rate-control mode; pBuf as for H264GetRateCtrlMode(). Blocks for a transfer. */
NYXUS_API int32_t H264SetRateCtrlMode(NyDevice* pDevObj, const uint8_t* pBuf);
/** Type of the next frame: 4 bytes, layer, picture type (16 bits each, little-endian). Blocks for a
 *  transfer. */
NYXUS_API int32_t H264SetNextFrameType(NyDevice* pDevObj, const uint8_t* pBuf);
/** Version of the payload layout: 2 bytes, little-endian. Blocks for a transfer. */
NYXUS_API int32_t H264GetVersion(NyDevice* pDevObj, uint8_t* pBuf);
/** Reset the encoder: 2 bytes, layer. Blocks for a transfer. */
NYXUS_API int32_t H264Reset(NyDevice* pDevObj, const uint8_t* pBuf);
/** QP steps: 5 bytes, layer (16 bits, little-endian), frame type, minimum, maximum. Blocks for a
 *  transfer. */
NYXUS_API int32_t H264GetQpSteps(NyDevice* pDevObj, uint8_t* pBuf);
/** Set the QP steps; pBuf as for H264GetQpSteps(). Blocks for a transfer. */
NYXUS_API int32_t H264SetQpSteps(NyDevice* pDevObj, const uint8_t* pBuf);
/** Read peak and average bitrate, bit/s. Blocks for a transfer. */
NYXUS_API int32_t H264GetBitrate(NyDevice* pDevObj, H264BitrateLayers* out);
/** Set peak and average bitrate of a layer, bit/s. Blocks for a transfer. */
NYXUS_API int32_t H264SetBitrate(NyDevice* pDevObj, const H264BitrateLayers* in);
/** Frames from one I-frame to the next. Blocks for 2 transfers. */
NYXUS_API int32_t H264GetIFramePeriod(NyDevice* pDevObj, uint16_t* period);
/** Set the frames from one I-frame to the next; 0 counts as 1. Blocks for a transfer. */
NYXUS_API int32_t H264SetIFramePeriod(NyDevice* pDevObj, const uint16_t* period);
/** Read the stream format, 0 or 1. Blocks for 2 transfers. */
NYXUS_API int32_t H264GetFormat(NyDevice* pDevObj, uint8_t* format);
/** Set the stream format; any non-zero format is 1. Blocks for 3 transfers. */
NYXUS_API int32_t H264SetFormat(NyDevice* pDevObj, uint8_t format);

NYXUS_END_DECLS

#endif
