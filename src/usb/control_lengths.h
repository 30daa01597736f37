// SPDX-License-Identifier: Apache-2.0
// How long the controls of an object are. Several objects share a table, which holds the lengths of
// the camera that was probed last; so every object keeps what its own camera announced.
#pragma once

#include <nyxus/xu.h>

namespace nyxus {

/// The length that a row of a table holds; probes of other threads may be correcting it.
uint16_t row_length(const uvc_xu_ctrl& row);

/// Puts the length that the camera of `handle` announced into a row; returns what it held before.
uint16_t correct_row(uvc_xu_ctrl& row, uint16_t length, const libusb_device_handle* handle);

/// The object keeps the length that its camera announced for a control.
void keep_length(NyDevice* pDevObj, uint8_t selector, uint16_t length);

/// The length of the object's transfers with a control of its table. Nothing else decides it: what
/// the object's camera announced where a probe of another camera has corrected the row, else the
/// row's own, which is this camera's or the host's.
uint16_t control_length(const NyDevice* pDevObj, const uvc_xu_ctrl& row);

/// requireXUSizeTable() on the object's table; the object keeps the lengths.
int32_t learn_control_lengths(NyDevice* pDevObj);

} // namespace nyxus
