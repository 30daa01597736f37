// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/device.h>

namespace nyxus {

/// Asks the system, not the camera, whether the camera is still there; remembers it when it is not.
bool camera_has_gone(NyDevice* pDevObj);

/// Closes what init_uvc_video opened; abandons it when the camera is gone. Once per object.
void close_session(NyDevice* pDevObj, uvc_device_handle_t* handle);

} // namespace nyxus
