// SPDX-License-Identifier: Apache-2.0
#include <nyxus/h264.h>

#include <iterator>

// clang-format off
uvc_xu_ctrl uvc_xu_table_h264[] = {
//   name                          selector                   length
    {"H264_RATE_CONTROL_MODE",     UVCX_RATE_CONTROL_MODE,    0,  3},
    {"H264_VERSION",               UVCX_VERSION,              0,  2},
    {"H264_BITRATE_LAYERS",        UVCX_BITRATE_LAYERS,       0, 10},
    {"H264_QP_STEPS_LAYERS",       UVCX_QP_STEPS_LAYERS,      0,  5},
    {"H264_PICTURE_TYPE_CONTROL",  UVCX_PICTURE_TYPE_CONTROL, 0,  4},
    {"H264_ENCODER_RESET",         UVCX_ENCODER_RESET,        0,  2},
};
// clang-format on
int32_t uvc_xu_table_h264_count = std::size(uvc_xu_table_h264);

static_assert(std::size(uvc_xu_table_h264) == 6);
