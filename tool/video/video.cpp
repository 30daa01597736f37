// SPDX-License-Identifier: Apache-2.0
#include "video/video.h"

#include "terminal/failure.h"
#include "terminal/text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace tool {

using Clock = std::chrono::steady_clock;

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
    command
        .text("--format", &options.format,
              "Format, as 'nyxus formats' names it (without it: yuyv where the camera has it)")
        .offering([] {
            return command_line::Words{"yuyv", "mjpeg"};
        });
    command.text("--size", &options.size, "Size of the picture")
        .shown_as("WxH")
        .refused(refuse)
        .showing_default();
    add_number(command, "--fps", &options.frames_per_s, 1, kMostFramesPer_s,
               "Frames per second (without it: the first rate that the camera offers)");
}

std::string format_name(uint32_t fourcc)
{
    return fourcc == NYXUS_FOURCC_MJPEG ? "MJPEG" : printable(nyxus::fourcc_text(fourcc));
}

std::vector<NyStreamFormat> list_formats(Session& session)
{
    auto formats = nyxus::list_formats(session.camera);
    if (!formats)
        throw usb_failure("reading the formats", LIBUSB_ERROR_NO_DEVICE);
    if (formats->empty()) {
        throw Failure(kExitNotSupported,
                      session.camera.name() + " announces no format that it streams");
    }
    return std::move(*formats);
}

static bool is_named(const NyStreamFormat& format, const std::string& wanted)
{
    return std::ranges::equal(format_name(format.fourcc), wanted, [](char a, char b) {
        return a == std::toupper(static_cast<unsigned char>(b));
    });
}

/// "YUYV, MJPEG"; a camera lists the sizes of a format in a row.
static std::string names_of(const std::vector<NyStreamFormat>& formats)
{
    std::string names;
    uint32_t last = 0;
    for (const NyStreamFormat& format : formats) {
        if (names.empty() || format.fourcc != last)
            names += (names.empty() ? "" : ", ") + format_name(format.fourcc);
        last = format.fourcc;
    }
    return names;
}

nyxus::VideoFormat video_format(Session& session, const VideoOptions& options)
{
    const std::vector<NyStreamFormat> formats = list_formats(session);
    const std::string wanted = options.format.empty() ? "YUYV" : options.format;
    auto found = std::ranges::find_if(
        formats, [&](const NyStreamFormat& format) { return is_named(format, wanted); });
    if (found == formats.end() && !options.format.empty()) {
        throw Failure(kExitNotSupported, session.camera.name() + " streams no " +
                                             in_quotes(options.format) + "; it streams " +
                                             names_of(formats));
    }
    nyxus::VideoFormat format;
    format.fourcc = (found == formats.end() ? formats.begin() : found)->fourcc;
    format.fps = options.frames_per_s;
    parse_size(options.size, format.width, format.height);
    return format;
}

static End take_frames(nyxus::Stream& stream, const std::stop_source& interrupt,
                       Clock::time_point end, std::chrono::seconds patience,
                       const std::function<bool(const nyxus::Frame&)>& take)
{
    constexpr uint32_t kTick_ms = 100; // nothing wakes us for an interrupt
    for (auto silent_since = Clock::now(); Clock::now() - silent_since < patience;) {
        const auto frame = stream.next(kTick_ms);
        if (interrupt.stop_requested())
            return End::kInterrupt;
        if (Clock::now() >= end || (frame && !take(*frame)))
            return End::kReached;
        if (!frame && frame.status().code() == UVC_ERROR_NO_DEVICE)
            return End::kGone;
        if (frame)
            silent_since = Clock::now();
    }
    return End::kSilence;
}

End receive(Session& session, nyxus::Stream& stream, Clock::time_point end,
            std::chrono::seconds patience, const std::function<bool(const nyxus::Frame&)>& take)
{
    const std::stop_source interrupt;
    session.console.postpone_interrupts("", interrupt);
    const End how = take_frames(stream, interrupt, end, patience, take);
    if (how != End::kInterrupt)
        session.console.stop_postponing();
    return how;
}

/// "640x480, 320x240": the sizes that the camera has of a format.
static std::string sizes_of(Session& session, uint32_t fourcc)
{
    std::string sizes;
    for (const NyStreamFormat& format : list_formats(session)) {
        if (format.fourcc != fourcc)
            continue;
        sizes += (sizes.empty() ? "" : ", ") + tool::format("%ux%u", format.width, format.height);
    }
    return sizes;
}

static Failure start_failure(Session& session, const nyxus::VideoFormat& format,
                             const nyxus::Status& status)
{
    std::string text = tool::format("cannot stream %ux%u as ", format.width, format.height) +
                       format_name(format.fourcc);
    if (format.fps != 0)
        text += tool::format(" at %u frames per second", format.fps);
    if (status.code() == UVC_ERROR_NO_DEVICE)
        return usb_failure(text, LIBUSB_ERROR_NO_DEVICE);
    if (status.code() != UVC_ERROR_INVALID_MODE)
        return {kExitFailure, text + ": " + printable(status.message())};
    text += ": the camera does not offer that; 'nyxus formats' lists what it offers (sizes: " +
            sizes_of(session, format.fourcc) + ")";
    if (format.fps != 0)
        text += ", and without --fps it chooses the rate";
    return {kExitNotSupported, text};
}

nyxus::Stream start_stream(Session& session, const nyxus::VideoFormat& format)
{
    auto stream = nyxus::Stream::start(session.camera, format);
    if (!stream)
        throw start_failure(session, format, stream.status());
    return std::move(*stream);
}

} // namespace tool
