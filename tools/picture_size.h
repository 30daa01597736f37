// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "failure.h"
#include "feature.h"

#include <nyxus/video.h>

namespace tool {

/// Size and rate of a stream on the command line.
struct VideoOptions {
    std::string size = "640x480";
    uint32_t frames_per_s = 0; ///< 0: the first that the camera offers for the size
};

void add_video_options(Command& command, VideoOptions& options);
VideoStreamParam stream_param(const VideoOptions& options);
/// Why no stream of this size and rate has started.
Failure stream_failure(const VideoStreamParam& param, int32_t status);

/// What the kernel lends to USB transfers, and what a stream needs of it.
struct UsbMemory {
    uint64_t limit_mib = 0; ///< 0: no limit
    uint64_t needed_mib = 0;

    bool is_enough() const { return limit_mib == 0 || limit_mib >= needed_mib; }
    std::string remedy() const;
};
UsbMemory usb_memory(const VideoStreamParam& param);
/// What to do about a kernel limit that is too small for the stream's transfers; "" when it is not.
std::string usbfs_advice(const VideoStreamParam& param);

} // namespace tool
