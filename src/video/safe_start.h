// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/device.h>

namespace nyxus {

/// Starts the stream that stream_ctrl holds; one that does not start is stopped.
uvc_error_t start_safely(NyDevice* pDevObj, uvc_stream_handle_t** stream,
                         uvc_frame_callback_t* callback, void* user);

} // namespace nyxus
