// SPDX-License-Identifier: Apache-2.0
#include "failure.h"
#include "last_words.h"
#include "picture_size.h"
#include "text.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <fstream>
#include <mutex>

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    VideoOptions video;
    uint32_t count = 0;   ///< frames; 0: any number
    uint32_t seconds = 0; ///< 0: without end
    std::string raw_file;
};

/// What the streaming thread has seen.
struct Reception {
    std::mutex mutex;
    std::condition_variable changed;
    std::ofstream raw;
    uint32_t most_frames = 0;
    uint32_t frames = 0;
    uint32_t dropped = 0;
    uint32_t last_sequence = 0;
    Clock::time_point first;
    Clock::time_point last;
};
Reception reception; // the library's callback carries no pointer of ours

/// Nothing more is wanted, or can be kept.
bool complete()
{
    return !reception.raw ||
           (reception.most_frames != 0 && reception.frames >= reception.most_frames);
}

void on_frame(uvc_frame_t* frame, VideoStreamParam*)
{
    const std::lock_guard lock(reception.mutex);
    if (complete())
        return;
    reception.last = Clock::now();
    if (reception.frames++ == 0) {
        reception.first = reception.last;
    } else if (frame->sequence > reception.last_sequence) {
        reception.dropped += frame->sequence - reception.last_sequence - 1;
    }
    reception.last_sequence = frame->sequence;
    if (reception.raw.is_open()) {
        reception.raw.write(static_cast<const char*>(frame->data),
                            static_cast<std::streamsize>(frame->data_bytes));
    }
    reception.changed.notify_one();
}

double frames_per_s()
{
    const double time_s = std::chrono::duration<double>(reception.last - reception.first).count();
    return reception.frames > 1 && time_s > 0 ? (reception.frames - 1) / time_s : 0;
}

enum class End { kReached, kSilence, kInterrupt };

/// Until the end that the user has set, by the command line or an interrupt; a second interrupt
/// ends the program.
End wait_for_end(uint32_t seconds)
{
    constexpr std::chrono::seconds kPatience{5};
    constexpr std::chrono::milliseconds kTick{100}; // nothing wakes us for an interrupt
    const auto end =
        seconds != 0 ? Clock::now() + std::chrono::seconds(seconds) : Clock::time_point::max();
    std::unique_lock lock(reception.mutex);
    auto silent_since = Clock::now();
    while (!complete()) {
        const uint32_t before = reception.frames;
        const auto now = Clock::now();
        const bool more = reception.changed.wait_until(lock, std::min(end, now + kTick),
                                                       [&] { return reception.frames != before; });
        if (last_words::interrupt_came())
            return End::kInterrupt;
        if (Clock::now() >= end)
            return End::kReached;
        if (more) {
            silent_since = Clock::now();
        } else if (Clock::now() - silent_since >= kPatience) {
            return End::kSilence;
        }
    }
    return End::kReached;
}

End receive(Session& session, uint32_t seconds)
{
    const Unwatched unwatched(session.console);
    last_words::postpone_interrupts("");
    const End end = wait_for_end(seconds);
    last_words::stop_postponing();
    return end;
}

Failure silence_failure(const NyDevice& device)
{
    const std::string text = reception.frames == 0 ? "the camera sent no complete frame"
                                                   : "the frames have stopped coming";
    if (libusb_kernel_driver_active(device.usb_handle, 0) == LIBUSB_ERROR_NO_DEVICE)
        return usb_failure(text, LIBUSB_ERROR_NO_DEVICE);
    return {kExitTimeout, text + "; try a smaller --size, or another cable or port"};
}

void open_raw_file(const std::string& file)
{
    reception.raw.open(file, std::ios::binary);
    if (!reception.raw)
        throw Failure(kExitFailure, "cannot write " + in_quotes(file));
}

void run_stream(Session& session, const Options& options)
{
    VideoStreamParam param = stream_param(options.video);
    if (const std::string advice = usbfs_advice(param); !advice.empty())
        session.console.display().warn("nyxus: " + advice);
    reception.most_frames = options.count;
    if (!options.raw_file.empty()) // with a camera at hand: it replaces what is there
        open_raw_file(options.raw_file);
    const int32_t status = startVideoStream(session.device(), on_frame, &param);
    const End end = status >= 0 ? receive(session, options.seconds) : End::kReached;
    stopVideoStream(session.device());
    if (status < 0)
        throw stream_failure(param, status);
    if (reception.frames == 0 && end == End::kInterrupt)
        throw Failure(kExitInterrupted, "interrupted before the first frame");
    if (reception.frames == 0)
        throw silence_failure(*session.device());
    session.print({{"frames", reception.frames},
                   {"dropped", reception.dropped},
                   {"frames_per_second", std::round(frames_per_s() * 10) / 10}});
    reception.raw.flush();
    if (!options.raw_file.empty() && !reception.raw)
        throw Failure(kExitFailure, "cannot write all frames to " + in_quotes(options.raw_file));
    if (end == End::kSilence)
        throw silence_failure(*session.device());
    // Where nothing else ends the stream, an interrupt is its end.
    if (end == End::kInterrupt && (options.count != 0 || options.seconds != 0))
        throw Failure(kExitInterrupted, "interrupted before the end");
}

} // namespace

void add_stream_command(Command& app, Arguments& arguments)
{
    constexpr uint32_t kMost = 1'000'000'000;
    constexpr uint32_t kMost_s = 1'000'000;
    const auto options = std::make_shared<Options>();
    Command& command = add_command(app, "stream", "Receive video and measure it",
                                   "nyxus stream --count 100 --raw video.yuyv");
    add_video_options(command, options->video);
    add_number(command, "--count", &options->count, 1, kMost, "Frames to receive");
    add_number(command, "--seconds", &options->seconds, 1, kMost_s, "Stop after seconds");
    command.file("--raw", &options->raw_file, "Write the frames as YUYV");
    set_action(command, arguments, [options](Session& session) { run_stream(session, *options); });
}

} // namespace tool
