// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/device.h>

namespace nyxus {

/// Starts the stream that stream_ctrl holds; one that does not start is stopped.
uvc_error_t start_safely(NyDevice* pDevObj, uvc_stream_handle_t** stream,
                         uvc_frame_callback_t* callback, void* user);

/// Before a stream is stopped: no other start looks at its camera any more.
void forget_stream(libusb_device_handle* handle);

/// After a start that has failed, where libuvc has claimed the video interface for it: the kernel's
/// driver, or another program, may have it.
void give_back_interface(NyDevice* pDevObj);

} // namespace nyxus
