// SPDX-License-Identifier: Apache-2.0
// What a camera streams, by its descriptors.
#pragma once

#include <libuvc/libuvc.h>
#include <nyxus/streaming.h>

namespace nyxus {

/// Fills in what names the wanted stream in a negotiation; false when the camera does not offer it.
bool choose_format(uvc_device_handle_t* handle, const NyStreamRequest& request,
                   uvc_stream_ctrl_t* control);

/// The number of the interface whose formats libuvc lists, -1 when there is none: libuvc must not
/// be asked for them then.
int streaming_interface(uvc_device_handle_t* handle);

/// Whether libuvc may be asked for this YUYV stream: it divides by zero where a size has a range of
/// intervals and the rate, or the range's step, is 0.
bool may_ask_libuvc(uvc_device_handle_t* handle, uint32_t width, uint32_t height, uint32_t fps);

} // namespace nyxus
