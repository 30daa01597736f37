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

/// Whether libuvc may be entered for it.
inline bool is_session_open(const NyDevice& device)
{
    return device.uvc_handle != nullptr && device.session_closed == kSessionOpen;
}

/// The latest claim or transfer tells whether the camera is gone; without a handle there was none.
void note_whether_gone(NyDevice* pDevObj, int32_t rv);

} // namespace nyxus
