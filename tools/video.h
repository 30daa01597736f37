// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "feature.h"

#include <nyxus/cpp/video.hpp>

// What the commands share that receive video.
namespace tool {

/// Format, size and rate of a stream on the command line.
struct VideoOptions {
    std::string format; ///< "": YUYV where the camera has it, else its first one
    std::string size = "640x480";
    uint32_t frames_per_s = 0; ///< 0: the first that the camera offers for the size
};

void add_video_options(Command& command, VideoOptions& options);

/// "YUYV", "MJPEG", or four characters as the camera announces them.
std::string format_name(uint32_t fourcc);
std::vector<NyStreamFormat> list_formats(Session& session);

/// What to ask the camera for. A Failure when it does not have the format.
nyxus::VideoFormat video_format(Session& session, const VideoOptions& options);
/// Starts it, or says why the camera or the kernel does not.
nyxus::Stream start_stream(Session& session, const nyxus::VideoFormat& format);

} // namespace tool
