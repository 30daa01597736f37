// SPDX-License-Identifier: Apache-2.0
// Ends streams and sessions of cameras that may go at any moment, also while they are ended.
#pragma once

#include <nyxus/device.h>

namespace nyxus {

/// Whether the kernel says so.
bool is_gone(libusb_device_handle* handle);

/// Stops whatever streams. False when the camera is gone: then its stream is abandoned, and what
/// libuvc was given for it is used until the process ends. No frame callback may be under way.
bool stop_streams(NyDevice* pDevObj);

/// Closes what init_uvc_video opened, when nothing streams any more; abandons it when the camera is
/// gone. Once per object.
void close_session(NyDevice* pDevObj, uvc_device_handle_t* handle);

} // namespace nyxus
