// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/device.h>

namespace nyxus {

/// The latest claim or transfer tells whether the camera is gone; without a handle there was none.
void note_whether_gone(NyDevice* pDevObj, int32_t rv);

} // namespace nyxus
