// SPDX-License-Identifier: Apache-2.0
// The kernel lends memory to all USB transfers together, and libuvc queues a hundred of them.
#pragma once

#include <nyxus/device.h>

namespace nyxus {

/// Whether the kernel lends only so much to USB transfers.
bool is_kernel_memory_limited();

/// Whether all transfers of the stream fit into what the kernel lends. False, too, for what libuvc
/// must not be asked to start.
bool all_transfers_fit(NyDevice* pDevObj, const uvc_stream_ctrl_t& control);

/// Sees to it that the stream that has been negotiated can be started: where its transfers would
/// take more than their share, the camera is asked for smaller payloads. 0, or a raised failure: a
/// uvc_error. `function` is the exported one.
int32_t fit_payload(const char* function, NyDevice* pDevObj, uvc_stream_ctrl_t& control);

} // namespace nyxus
