// SPDX-License-Identifier: Apache-2.0
#include "terminal/failure.h"
#include "terminal/text.h"
#include "video/video.h"

#include <chrono>
#include <cmath>
#include <fstream>

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

struct StreamOptions {
    VideoOptions video;
    uint32_t count = 0;   ///< frames; 0: any number
    uint32_t seconds = 0; ///< 0: without end
    std::string raw_file;
};

/// What has been received.
struct Reception {
    std::ofstream raw;
    uint32_t frames = 0;
    uint32_t dropped = 0;
    uint32_t last_sequence = 0;
    Clock::time_point first;
    Clock::time_point last;

    void take(const nyxus::Frame& frame)
    {
        last = Clock::now();
        if (frames++ == 0) {
            first = last;
        } else if (frame.sequence > last_sequence) {
            dropped += frame.sequence - last_sequence - 1;
        }
        last_sequence = frame.sequence;
        if (raw.is_open()) {
            raw.write(reinterpret_cast<const char*>(frame.data.data()),
                      static_cast<std::streamsize>(frame.data.size()));
        }
    }

    double frames_per_s() const
    {
        const double time_s = std::chrono::duration<double>(last - first).count();
        return frames > 1 && time_s > 0 ? (frames - 1) / time_s : 0;
    }
};

End receive(Session& session, const StreamOptions& options, Reception& reception)
{
    const Unwatched unwatched(session.console);
    nyxus::Stream stream = start_stream(session, video_format(session, options.video));
    if (!options.raw_file.empty()) { // with a stream at hand: it replaces what is there
        reception.raw.open(options.raw_file, std::ios::binary);
        if (!reception.raw)
            throw Failure(kExitFailure, "cannot write " + in_quotes(options.raw_file));
    }
    const auto end = options.seconds != 0 ? Clock::now() + std::chrono::seconds(options.seconds)
                                          : Clock::time_point::max();
    constexpr std::chrono::seconds kLongestGap{5};
    return tool::receive(session, stream, end, kLongestGap, [&](const nyxus::Frame& frame) {
        reception.take(frame);
        return reception.raw && reception.frames != options.count;
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
    if (reception.frames == 0 && end == End::kInterrupt)
        throw Failure(kExitInterrupted, "interrupted before the first frame");
    if (reception.frames == 0)
        throw end_failure(end, false);
    session.print({{"frames", reception.frames},
                   {"dropped", reception.dropped},
                   {"frames_per_second", std::round(reception.frames_per_s() * 10) / 10}});
    reception.raw.flush();
    if (!options.raw_file.empty() && !reception.raw)
        throw Failure(kExitFailure, "cannot write all frames to " + in_quotes(options.raw_file));
    if (end == End::kSilence || end == End::kGone)
        throw end_failure(end, true);
    // Where nothing else ends the stream, an interrupt is its end.
    if (end == End::kInterrupt && (options.count != 0 || options.seconds != 0))
        throw Failure(kExitInterrupted, "interrupted before the end");
}

} // namespace

void add_stream_command(Command& app, Arguments& arguments)
{
    constexpr uint32_t kMost = 1'000'000'000;
    constexpr uint32_t kMost_s = 1'000'000;
    const auto options = std::make_shared<StreamOptions>();
    Command& command =
        add_command(app, "stream", "Receive video and measure it", "--count 100 --raw video.yuyv");
    add_video_options(command, options->video);
    add_number(command, "--count", &options->count, 1, kMost, "Frames to receive");
    add_number(command, "--seconds", &options->seconds, 1, kMost_s, "Stop after seconds");
    command.file("--raw", &options->raw_file, "Write the frames as they come");
    set_action(command, arguments, [options](Session& session) { run_stream(session, *options); });
}

} // namespace tool
