// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/device.h>

namespace nyxus {

/// NyDevice::session_closed
enum SessionState : uint8_t {
    kSessionOpen,
    kSessionClosed, ///< or abandoned: transfers are still answered
    kSessionBroken, ///< its camera went while libuvc was in it: the USB handle is used no more
};

/// The latest claim or transfer tells whether the camera is gone; without a handle there was none.
void note_whether_gone(NyDevice* pDevObj, int32_t rv);

} // namespace nyxus
