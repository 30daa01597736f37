// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "features/feature.h"

#include <chrono>
#include <nyxus/cpp/video.hpp>

// What the commands share that receive video.
namespace tool {

/// Format, size and rate of a stream on the command line.
struct VideoOptions {
    std::string format; ///< "": YUYV where the camera has it, else its first one
    std::string size;   ///< "": 640x480 where the camera has it in that format, else its first one
    uint32_t frames_per_s = 0; ///< 0: the first that the camera offers for the size
};

void add_video_options(Command& command, VideoOptions& options);

/// "YUYV", "MJPEG", or four characters as the camera announces them.
std::string format_name(uint32_t fourcc);
std::vector<NyStreamFormat> list_formats(Session& session);
/// The rates that there are; of any in between, the highest and the lowest.
std::vector<double> rates_of(const NyStreamFormat& format);
/// "30, 15", or "30 to 15".
std::string rates_text(const NyStreamFormat& format);
/// Of the cameras that are connected, as the kernel knows them: disturbs nobody who uses one.
std::vector<NyStreamFormat> formats_on_the_bus();

/// Whether the file's name ends so, in small or capital letters.
bool ends_with(const std::string& name, const char* ending);

/// What to ask the camera for: without a format, the preferred one where it has that. A Failure
/// when it does not have the format.
nyxus::VideoFormat video_format(Session& session, const VideoOptions& options,
                                const std::string& preferred = "YUYV");
/// Why no more frames are taken.
enum class End { kReached, kSilence, kGone, kInterrupt };

/// Takes frames while `take` wants more, until `end` or until none has come for `patience`. An
/// interrupt ends that, too; a second one ends the program.
End receive(Session& session, nyxus::Stream& stream, std::chrono::steady_clock::time_point end,
            std::chrono::seconds patience, const std::function<bool(const nyxus::Frame&)>& take);

/// Starts it, or says why the camera or the kernel does not.
nyxus::Stream start_stream(Session& session, const nyxus::VideoFormat& format);

} // namespace tool
