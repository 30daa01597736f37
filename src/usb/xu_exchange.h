// SPDX-License-Identifier: Apache-2.0
// Shared by the units above the USB transport.
#pragma once

#include <nyxus/xu.h>

namespace nyxus {

/// The row of the camera's table, or nullptr. Searched live: the host may change a table.
const uvc_xu_ctrl* find_control(const uvc_xu_ctrl* table, int32_t count, uint8_t selector);

/// UvcXuCtrlQueryNYXU for a record of `size` bytes that the library (or a caller of known size)
/// owns. The camera decides a control's length: a longer control travels in a zero-filled buffer of
/// that length, and only the record's bytes come back.
int32_t xu_exchange(NyDevice* pDevObj, int32_t selector, uint8_t request, void* record,
                    uint16_t size);

} // namespace nyxus
