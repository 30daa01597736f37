// SPDX-License-Identifier: Apache-2.0
#include <nyxus/device.h>
#include <nyxus/extensions.h>

#include <cstring>

#include "control_lengths.h"
#include "trace/failure.h"
#include "unit.h"
#include "xu_exchange.h"

namespace nyxus {

const uvc_xu_ctrl* find_control(const uvc_xu_ctrl* table, int32_t count, uint8_t selector)
{
    for (int32_t i = 0; table != nullptr && i < count; ++i) {
        if (table[i].selector == selector)
            return &table[i];
    }
    return nullptr;
}

/// Holds the largest control that a camera can announce; apart, so that its stack is not spent on
/// every exchange.
[[gnu::noinline]] static int32_t exchange_longer_control(NyDevice* pDevObj, uint8_t selector,
                                                         uint8_t request, uint16_t length,
                                                         void* record, uint16_t size)
{
    uint8_t buffer[UINT16_MAX];
    std::memset(buffer, 0, length);
    std::memcpy(buffer, record, size);
    const int32_t rv = UvcXuCtrlQuery(pDevObj, NY_UNIT_VENDOR, selector, request, length, buffer);
    if (rv >= 0 && request != UVC_SET_CUR)
        std::memcpy(record, buffer, size);
    return rv;
}

int32_t xu_exchange(NyDevice* pDevObj, int32_t selector, uint8_t request, void* record,
                    uint16_t size)
{
    const uvc_xu_ctrl* row = pDevObj != nullptr
                                 ? find_control(pDevObj->xu_table, pDevObj->xu_table_count,
                                                static_cast<uint8_t>(selector))
                                 : nullptr;
    if (row == nullptr) // the query says what is missing
        return UvcXuCtrlQueryNYXU(pDevObj, selector, request, static_cast<uint8_t*>(record));
    const uint16_t length = control_length(pDevObj, *row);
    if (length > size)
        return exchange_longer_control(pDevObj, row->selector, request, length, record, size);
    return UvcXuCtrlQuery(pDevObj, NY_UNIT_VENDOR, row->selector, request, length,
                          static_cast<uint8_t*>(record));
}

} // namespace nyxus

int32_t UvcXuCtrlQueryNYXU(NyDevice* pDevObj, int32_t bSelector, uint8_t bRequest, uint8_t* pData)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const auto selector = static_cast<uint8_t>(bSelector);
    const uvc_xu_ctrl* row =
        nyxus::find_control(pDevObj->xu_table, pDevObj->xu_table_count, selector);
    if (row == nullptr)
        return NY_FAIL(NYXUS_E_INVALID, "Invalid XU selector: 0x%02X", selector);
    return UvcXuCtrlQuery(pDevObj, NY_UNIT_VENDOR, selector, bRequest,
                          nyxus::control_length(pDevObj, *row), pData);
}

int32_t nyxus_control_length(NyDevice* pDevObj, int32_t bSelector)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const auto selector = static_cast<uint8_t>(bSelector);
    const uvc_xu_ctrl* row =
        nyxus::find_control(pDevObj->xu_table, pDevObj->xu_table_count, selector);
    if (row == nullptr)
        return NY_FAIL(NYXUS_E_INVALID, "Invalid XU selector: 0x%02X", selector);
    return nyxus::control_length(pDevObj, *row);
}
