// SPDX-License-Identifier: Apache-2.0
#include <nyxus/device.h>
#include <nyxus/h264.h>

#include <cstring>

#include "trace/failure.h"
#include "unit.h"
#include "xu_exchange.h"

uint8_t nyxus_h264_standard_order = 0;

static constexpr int kInvalidSelectorLine = 244;

int32_t UvcXuCtrlQueryH264(NyDevice* pDevObj, int32_t bSelector, int32_t bRequest, uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const auto selector = static_cast<uint8_t>(bSelector);
    const auto request = static_cast<uint8_t>(bRequest);
    const uvc_xu_ctrl* row =
        nyxus::find_control(uvc_xu_table_h264, uvc_xu_table_h264_count, selector);
    if (row == nullptr) {
        return NY_FAIL_AT(kInvalidSelectorLine, NYXUS_E_INVALID, "Invalid H.264 selector: 0x%02X",
                          selector);
    }
    NY_REQUIRE(pBuf);

    // The swapped order asks for up to 0x81 bytes whatever the control's length, so the transfer
    // has room of its own, and the caller gets back what a read of the control holds.
    const auto length = static_cast<uint8_t>(row->length);
    uint8_t payload[UINT8_MAX] = {};
    std::memcpy(payload, pBuf, length);
    const int32_t rv =
        nyxus_h264_standard_order != 0
            ? UvcXuCtrlQuery(pDevObj, NY_UNIT_H264, selector, request, length, payload)
            : UvcXuCtrlQuery(pDevObj, NY_UNIT_H264, selector, length, request, payload);
    if (rv >= 0 && request != UVC_SET_CUR)
        std::memcpy(pBuf, payload, length);
    return rv;
}
