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

static std::string lower_case(std::string text)
{
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool ends_with(const std::string& name, const char* ending)
{
    return lower_case(name).ends_with(ending);
}

/// What tells the formats apart, each text once.
template <typename Text>
static command_line::Words distinct(const std::vector<NyStreamFormat>& formats, const Text& text)
{
    command_line::Words words;
    for (const NyStreamFormat& format : formats) {
        if (std::ranges::find(words, text(format)) == words.end())
            words.push_back(text(format));
    }
    return words;
}

static std::string named_format(const NyStreamFormat& format)
{
    return format_name(format.fourcc);
}

static std::string size_text(const NyStreamFormat& format)
{
    return tool::format("%ux%u", format.width, format.height);
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
            const auto formats = formats_on_the_bus();
            return formats.empty() ? command_line::Words{"yuyv", "mjpeg"}
                                   : distinct(formats, [](const NyStreamFormat& format) {
                                         return lower_case(named_format(format));
                                     });
        });
    command
        .text("--size", &options.size,
              "Size of the picture (without it: 640x480 where the camera has it)")
        .shown_as("WxH")
        .refused(refuse)
        .offering([] { return distinct(formats_on_the_bus(), size_text); });
    add_number(command, "--fps", &options.frames_per_s, 1, kMostFramesPer_s,
               "Frames per second (without it: the first rate that the camera offers)")
        .offering([] {
            command_line::Words rates;
            for (const NyStreamFormat& format : formats_on_the_bus()) {
                for (const double rate : rates_of(format))
                    rates.push_back(tool::format("%.0f", rate));
            }
            std::ranges::sort(rates, {}, [](const std::string& rate) { return std::stoul(rate); });
            rates.erase(std::unique(rates.begin(), rates.end()), rates.end());
            return rates;
        });
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

nyxus::VideoFormat video_format(Session& session, const VideoOptions& options,
                                const std::string& preferred)
{
    const std::vector<NyStreamFormat> formats = list_formats(session);
    const auto find = [&](const std::string& name) {
        return std::ranges::find_if(formats, [&](const NyStreamFormat& format) {
            return lower_case(named_format(format)) == lower_case(name);
        });
    };
    auto found = find(options.format.empty() ? preferred : options.format);
    if (found == formats.end() && !options.format.empty()) {
        throw Failure(kExitNotSupported, session.camera.name() + " streams no " +
                                             in_quotes(options.format) + "; it streams " +
                                             listed(distinct(formats, named_format)));
    }
    if (found == formats.end())
        found = find("YUYV");
    if (found == formats.end())
        found = formats.begin();
    nyxus::VideoFormat format;
    format.fourcc = found->fourcc;
    format.fps = options.frames_per_s;
    const bool has_usual = std::ranges::any_of(formats, [&format](const NyStreamFormat& one) {
        return one.fourcc == format.fourcc && one.width == format.width &&
               one.height == format.height;
    });
    if (!options.size.empty()) {
        parse_size(options.size, format.width, format.height);
    } else if (!has_usual) {
        format.width = found->width;
        format.height = found->height;
    }
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

/// What the camera has instead: rates where it has the size, else sizes.
static std::string alternatives(Session& session, const nyxus::VideoFormat& wanted)
{
    std::vector<NyStreamFormat> formats = list_formats(session);
    std::erase_if(formats, [&](const auto& format) { return format.fourcc != wanted.fourcc; });
    const auto has_size = [&](const NyStreamFormat& format) {
        return format.width == wanted.width && format.height == wanted.height;
    };
    const auto same_size = std::ranges::find_if(formats, has_size);
    return same_size == formats.end() ? "sizes: " + listed(distinct(formats, size_text))
                                      : "rates: " + rates_text(*same_size);
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
    text += ": the camera does not offer that; 'nyxus formats' lists what it offers (" +
            alternatives(session, format) + ")";
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
