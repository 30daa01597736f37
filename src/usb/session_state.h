// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace nyxus {

/// NyDevice::session_closed
enum SessionState : uint8_t {
    kSessionOpen,
    kSessionClosed, ///< or abandoned: transfers are still answered
    kSessionBroken, ///< its camera went while libuvc was in it: the USB handle is used no more
};

} // namespace nyxus
