// SPDX-License-Identifier: Apache-2.0
#include "session/whole_file.h"
#include "terminal/failure.h"
#include "terminal/text.h"
#include "video/picture.h"
#include "video/video.h"

#include <nyxus/fingerprint.h>
#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <optional>

namespace tool {

namespace {

constexpr char kPng[] = "png";
constexpr char kJpeg[] = "jpeg";

struct SnapshotOptions {
    std::string file;
    std::string type; ///< "": by the file's name, and as it comes where that has no ending
    std::optional<uint32_t> quality;
    VideoOptions video;
};

/// By the file's name, whose ending has to be one of these if it has one.
std::string type_of(const SnapshotOptions& options)
{
    if (!options.type.empty())
        return options.type;
    std::string ending = std::filesystem::path(options.file).extension().string();
    std::ranges::transform(ending, ending.begin(), [](unsigned char c) { return std::tolower(c); });
    if (ending == ".png")
        return kPng;
    if (ending == ".jpg" || ending == ".jpeg")
        return kJpeg;
    if (ending.empty())
        return "";
    throw Failure(kExitUsage, in_quotes(options.file) +
                                  ": a picture is saved as .png or .jpg; --type png or --type jpeg "
                                  "says which for another name");
}

/// Ctrl-C ends the stream, too, and not just the program in the middle of it. A fingerprint board
/// in its snapshot mode sends one picture each time that it is asked to.
nyxus::Frame wait_for_frame(Session& session, nyxus::Stream& stream, uint32_t wait_s)
{
    constexpr std::chrono::seconds kTriggerInterval{1};
    std::optional<nyxus::Frame> first;
    const auto take = [&](const nyxus::Frame& frame) {
        first = frame;
        return false;
    };
    for (uint32_t waited_s = 0; waited_s < wait_s; ++waited_s) {
        const End end = receive(session, stream, std::chrono::steady_clock::time_point::max(),
                                kTriggerInterval, take);
        if (end == End::kInterrupt)
            throw Failure(kExitInterrupted, "interrupted");
        if (end == End::kGone)
            throw usb_failure("taking a picture", LIBUSB_ERROR_NO_DEVICE);
        if (first)
            return *std::move(first);
        (void)SG_SnapshotModeTrigger(session.device());
    }
    throw Failure(
        kExitTimeout,
        format("no complete frame within %u s; try a longer --wait or a smaller --size", wait_s));
}

std::vector<uint8_t> file_of(const Picture& picture, const std::string& type,
                             const SnapshotOptions& options)
{
    if (type != kJpeg)
        return png_of(picture);
    return options.quality ? jpeg_of(picture, *options.quality) : jpeg_of(picture);
}

/// What becomes of the frame: the JPEG that an MJPEG camera sends stays as it is, unless a PNG or
/// another quality is asked for.
std::vector<uint8_t> file_of(const nyxus::Frame& frame, const std::string& type,
                             const SnapshotOptions& options)
{
    const std::span<const uint8_t> data(frame.data.data(), frame.data.size());
    if (frame.fourcc == NYXUS_FOURCC_YUYV)
        return file_of(picture_of_yuyv(frame.width, frame.height, data), type, options);
    if (type == kPng || options.quality)
        return file_of(picture_of_jpeg(data), type, options);
    return {data.begin(), data.end()};
}

void run_snapshot(Session& session, const SnapshotOptions& options)
{
    constexpr unsigned kUsualWait_s = 10;
    const std::string type = type_of(options);
    const nyxus::VideoFormat format =
        video_format(session, options.video, type == kJpeg && !options.quality ? "MJPEG" : "YUYV");
    if (!type.empty() && format.fourcc != NYXUS_FOURCC_MJPEG &&
        format.fourcc != NYXUS_FOURCC_YUYV) {
        throw Failure(kExitUsage, format_name(format.fourcc) +
                                      " does not become a picture; a file "
                                      "without an ending takes it as it comes");
    }
    const uint32_t wait_s = session.arguments.wait_s.value_or(kUsualWait_s);
    const Unwatched unwatched(session.console);
    nyxus::Stream stream = start_stream(session, format);
    const std::vector<uint8_t> file =
        file_of(wait_for_frame(session, stream, wait_s), type, options);
    stream.stop();
    session.write(options.file, file);
    session.print({{"snapshot", options.file}, {"width", format.width}, {"height", format.height}});
}

} // namespace

void add_snapshot_command(Command& app, Arguments& arguments)
{
    const auto options = std::make_shared<SnapshotOptions>();
    Command& command = add_command(app, "snapshot", "Save a picture as PNG or JPEG", "shot.png");
    add_file(command, &options->file, "File to write: .png, .jpg; - is standard output");
    add_choice(command, "--type", &options->type, {kPng, kJpeg},
               "What it becomes (without it: by the name of the file, and a PNG of YUYV)");
    add_number(
        command, "--quality", &options->quality, 1, 100,
        "Quality of a JPEG that the tool makes (without it: as an MJPEG camera sends it, or 95)");
    add_video_options(command, options->video);
    set_action(
        command, arguments, [options](Session& session) { run_snapshot(session, *options); },
        [options, &arguments] {
            if (type_of(*options) != kJpeg && options->quality)
                throw Failure(kExitUsage, "--quality is for a JPEG: .jpg, or --type jpeg");
            refuse_impossible_target(options->file, arguments);
        });
}

} // namespace tool
