// SPDX-License-Identifier: Apache-2.0
#include "picture_size.h"

#include "text.h"

#include <cstdio>
#include <fstream>

namespace tool {

static bool parse_size(const std::string& text, uint32_t& width, uint32_t& height)
{
    constexpr uint32_t kMost = 8192;
    int end = 0;
    return std::sscanf(text.c_str(), "%4ux%4u%n", &width, &height, &end) == 2 &&
           static_cast<size_t>(end) == text.size() && width >= 2 && width % 2 == 0 && height >= 1 &&
           width <= kMost && height <= kMost;
}

void add_video_options(Command& command, VideoOptions& options)
{
    constexpr uint32_t kMostFramesPer_s = 240;
    const auto refuse = [](const std::string& text) {
        uint32_t width = 0;
        uint32_t height = 0;
        return parse_size(text, width, height) ? "" : text + " is no size from 2x1 to 8192x8192";
    };
    command.text("--size", &options.size, "Size of the picture")
        .shown_as("WxH")
        .refused(refuse)
        .showing_default();
    add_number(command, "--fps", &options.frames_per_s, 1, kMostFramesPer_s,
               "Frames per second (without it: the first rate that the camera offers)");
}

VideoStreamParam stream_param(const VideoOptions& options)
{
    VideoStreamParam param{};
    parse_size(options.size, param.width, param.height);
    param.fps = options.frames_per_s;
    return param;
}

Failure stream_failure(const VideoStreamParam& param, int32_t status)
{
    std::string text = format("cannot stream %ux%u", param.width, param.height);
    if (param.fps != 0)
        text += format(" at %u frames per second", param.fps);
    text += std::string(": ") + uvc_strerror(static_cast<uvc_error_t>(status));
    if (status == UVC_ERROR_NO_DEVICE)
        return {kExitCameraLost, text};
    text += "; 320x240, 640x480 and 1280x720 are usual sizes";
    if (param.fps != 0)
        text += ", and without --fps the camera chooses the rate";
    return {kExitNotSupported, text};
}

static constexpr char kLimitFile[] = "/sys/module/usbcore/parameters/usbfs_memory_mb";

UsbMemory usb_memory(const VideoStreamParam& param)
{
    constexpr uint64_t kTransfers = 100; // that libuvc keeps under way
    constexpr uint64_t kMib = 1024 * 1024;
    UsbMemory memory;
    std::ifstream(kLimitFile) >> memory.limit_mib;
    const uint64_t frame_bytes = uint64_t{param.width} * param.height * 2;
    memory.needed_mib = (kTransfers * frame_bytes + kMib - 1) / kMib;
    return memory;
}

std::string UsbMemory::remedy() const
{
    return "raise it: echo " + std::to_string(2 * needed_mib) + " | sudo tee " + kLimitFile;
}

std::string usbfs_advice(const VideoStreamParam& param)
{
    const UsbMemory memory = usb_memory(param);
    if (memory.is_enough())
        return "";
    return "the kernel lends " + std::to_string(memory.limit_mib) +
           " MiB to USB transfers, but this size needs about " + std::to_string(memory.needed_mib) +
           "; " + memory.remedy();
}

} // namespace tool
