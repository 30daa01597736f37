// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/device.h>

namespace nyxus {

/// Asks the system, not the camera, whether the camera is still there; remembers it when it is not.
bool camera_has_gone(NyDevice* pDevObj);

/// Says that a step of libuvc's has failed, as libuvc does.
void report_uvc_error(uvc_error_t error, const char* step);

/// Closes what init_uvc_video opened; abandons it when the camera is gone. Once per object.
void close_session(NyDevice* pDevObj, uvc_device_handle_t* handle);

} // namespace nyxus
