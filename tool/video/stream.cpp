// SPDX-License-Identifier: Apache-2.0
#include "files/write_all.h"
#include "session/whole_file.h"
#include "terminal/failure.h"
#include "terminal/text.h"
#include "video/video.h"
#include "video/y4m.h"

#include <fcntl.h>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

struct StreamOptions {
    VideoOptions video;
    uint32_t count = 0;   ///< frames; 0: any number
    uint32_t seconds = 0; ///< 0: without end
    std::string file;     ///< "": none, "-": standard output
    std::string raw_file; ///< the same, which is never Y4M
    std::string type;     ///< "": by the file's name

    bool is_y4m() const { return type == "y4m" || (type.empty() && ends_with(file, ".y4m")); }
    bool has_end() const { return count != 0 || seconds != 0; }
};

/// The frames in a file.
struct Recording {
    files::Descriptor file; ///< none: they are only counted
    std::optional<uint32_t>
        rate; ///< of a Y4M, as y4m_header() takes it; else they stay as they come
    bool has_begun = false;
    int error = 0; ///< errno of the first one

    void put(const nyxus::Frame& frame)
    {
        if (rate && !has_begun)
            error = files::write_all(file.get(), y4m_header(frame.width, frame.height, *rate));
        has_begun = true;
        if (error != 0)
            return;
        const auto* bytes = reinterpret_cast<const char*>(frame.data.data());
        error = rate ? files::write_all(file.get(), y4m_frame(frame))
                     : files::write_all(file.get(), {bytes, frame.data.size()});
    }
};

/// What has come until then.
struct Count {
    Clock::time_point time;
    uint32_t frames = 0;
    uint64_t bytes = 0;
};

struct Rates {
    double frames_per_s = 0;
    double megabytes_per_s = 0;
};

Rates rates_between(const Count& begin, const Count& end)
{
    constexpr double kMega = 1e6;
    const double time_s = std::chrono::duration<double>(end.time - begin.time).count();
    if (time_s <= 0)
        return {};
    return {(end.frames - begin.frames) / time_s,
            static_cast<double>(end.bytes - begin.bytes) / time_s / kMega};
}

/// What has been received.
struct Reception {
    Recording recording;
    Count now;
    Count first;
    Count recent; ///< between one and two seconds ago
    Count latest;
    uint32_t dropped = 0;
    uint32_t last_sequence = 0;

    void take(const nyxus::Frame& frame)
    {
        now = {Clock::now(), now.frames + 1, now.bytes + frame.data.size()};
        if (now.frames == 1) {
            first = recent = latest = now;
        } else if (frame.sequence > last_sequence) {
            dropped += frame.sequence - last_sequence - 1;
        }
        last_sequence = frame.sequence;
        if (now.time - latest.time >= std::chrono::seconds(1))
            recent = std::exchange(latest, now);
        if (recording.file)
            recording.put(frame);
    }

    /// As it is told meanwhile.
    std::string line() const
    {
        const auto [frames_per_s, megabytes_per_s] = rates_between(recent, now);
        return format("%.1f frames/s  %.1f MB/s  %u frames  %u dropped", frames_per_s,
                      megabytes_per_s, now.frames, dropped);
    }
};

/// With a stream at hand: it replaces what is there.
void open_recording(Session& session, const StreamOptions& options, const nyxus::Stream& stream,
                    Recording& recording)
{
    if (options.file.empty())
        return;
    constexpr mode_t kAnybody = 0666;
    recording.file =
        options.file == "-"
            ? session.console.display().give_output_away()
            : files::Descriptor(
                  ::open(options.file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kAnybody));
    if (!recording.file) {
        throw Failure(kExitFailure,
                      "cannot write " + in_quotes(options.file) + ": " + std::strerror(errno));
    }
    if (options.is_y4m())
        recording.rate = stream.status().interval;
}

End receive(Session& session, const StreamOptions& options, Reception& reception)
{
    const nyxus::VideoFormat format = video_format(session, options.video);
    if (options.is_y4m() && format.fourcc != NYXUS_FOURCC_YUYV) {
        throw Failure(kExitUsage, format_name(format.fourcc) +
                                      " does not become Y4M; choose --format yuyv, or --type raw");
    }
    const Unwatched unwatched(session.console);
    nyxus::Stream stream = start_stream(session, format);
    open_recording(session, options, stream, reception.recording);
    const auto end = options.seconds != 0 ? Clock::now() + std::chrono::seconds(options.seconds)
                                          : Clock::time_point::max();
    constexpr std::chrono::seconds kLongestGap{5};
    return tool::receive(session, stream, end, kLongestGap, [&](const nyxus::Frame& frame) {
        reception.take(frame);
        session.console.display().show({{.text = reception.line()}});
        return reception.recording.error == 0 && reception.now.frames != options.count;
    });
}

Failure end_failure(End end, bool has_frames)
{
    const std::string text =
        has_frames ? "the frames have stopped coming" : "the camera sent no complete frame";
    if (end == End::kGone)
        return usb_failure(text, LIBUSB_ERROR_NO_DEVICE);
    return {kExitTimeout, text + "; try a smaller --size, or another cable or port"};
}

void run_stream(Session& session, const StreamOptions& options)
{
    Reception reception;
    const End end = receive(session, options, reception);
    session.console.display().show({});
    if (reception.now.frames == 0 && end == End::kInterrupt)
        throw Failure(kExitInterrupted, "interrupted before the first frame");
    if (reception.now.frames == 0)
        throw end_failure(end, false);
    const auto rounded = [](double rate) { return std::round(rate * 10) / 10; };
    const Rates rates = rates_between(reception.first, reception.now);
    session.print({{"frames", reception.now.frames},
                   {"dropped", reception.dropped},
                   {"frames_per_second", rounded(rates.frames_per_s)},
                   {"megabytes_per_second", rounded(rates.megabytes_per_s)}});
    const int error = reception.recording.error;
    if (error != 0 && error != EPIPE) { // a reader that goes away has had enough
        throw Failure(kExitFailure, "cannot write all frames to " + in_quotes(options.file) + ": " +
                                        std::strerror(error));
    }
    if (end == End::kSilence || end == End::kGone)
        throw end_failure(end, true);
    // Where nothing else ends the stream, an interrupt is its end.
    if (end == End::kInterrupt && options.has_end())
        throw Failure(kExitInterrupted, "interrupted before the end");
}

/// What follows from the file's name and from --raw.
void complete_options(StreamOptions& options)
{
    if (!options.raw_file.empty()) {
        options.file = options.raw_file;
        options.type = "raw";
    }
    if (options.video.format.empty() &&
        (ends_with(options.file, ".mjpg") || ends_with(options.file, ".mjpeg")))
        options.video.format = "mjpeg";
}

} // namespace

void add_stream_command(Command& app, Arguments& arguments)
{
    constexpr uint32_t kMost = 1'000'000'000;
    constexpr uint32_t kMost_s = 1'000'000;
    const auto options = std::make_shared<StreamOptions>();
    Command& command = add_command(app, "stream", "Receive video: measure it, save it, pass it on",
                                   "--count 100 --output video.y4m");
    add_video_options(command, options->video);
    add_number(command, "--count", &options->count, 1, kMost, "Frames to receive");
    add_number(command, "--seconds", &options->seconds, 1, kMost_s, "Stop after seconds");
    const Option& output =
        command.file("-o,--output", &options->file, "Save the video; - is standard output");
    add_choice(command, "--type", &options->type, {"raw", "y4m"},
               "What it becomes: raw, the frames as they come, or y4m, YUYV with a header "
               "(without it: by the name of the file)")
        .needing(output);
    command.file("--raw", &options->raw_file, "The same as --type raw --output FILE")
        .excluding(output);
    set_action(
        command, arguments, [options](Session& session) { run_stream(session, *options); },
        [options, &arguments] {
            complete_options(*options);
            if (options->file == "-")
                refuse_impossible_target(options->file, arguments);
        });
}

} // namespace tool
