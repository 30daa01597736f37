// SPDX-License-Identifier: Apache-2.0
#include "failure.h"
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

bool complete()
{
    return reception.most_frames != 0 && reception.frames >= reception.most_frames;
}

void on_frame(uvc_frame_t* frame, VideoStreamParam*)
{
    const std::lock_guard lock(reception.mutex);
    if (complete())
        return;
    reception.last = Clock::now();
    if (reception.frames++ == 0)
        reception.first = reception.last;
    else if (frame->sequence > reception.last_sequence)
        reception.dropped += frame->sequence - reception.last_sequence - 1;
    reception.last_sequence = frame->sequence;
    if (reception.raw.is_open())
        reception.raw.write(static_cast<const char*>(frame->data),
                            static_cast<std::streamsize>(frame->data_bytes));
    reception.changed.notify_one();
}

double frames_per_s()
{
    const double time_s = std::chrono::duration<double>(reception.last - reception.first).count();
    return reception.frames > 1 && time_s > 0 ? (reception.frames - 1) / time_s : 0;
}

/// Until the end that the user has set; false when no frame comes any more before.
bool wait_for_end(uint32_t seconds)
{
    constexpr std::chrono::seconds kPatience{5};
    const auto end =
        seconds != 0 ? Clock::now() + std::chrono::seconds(seconds) : Clock::time_point::max();
    std::unique_lock lock(reception.mutex);
    while (!complete()) {
        const uint32_t before = reception.frames;
        const auto until = std::min(end, Clock::now() + kPatience);
        const bool more =
            reception.changed.wait_until(lock, until, [&] { return reception.frames != before; });
        if (Clock::now() >= end)
            return true;
        if (!more)
            return false;
    }
    return true;
}

Failure silence_failure(const NyDevice& device)
{
    const std::string text = reception.frames == 0 ? "the camera sent no complete frame"
                                                   : "the frames have stopped coming";
    if (libusb_kernel_driver_active(device.usb_handle, 0) == LIBUSB_ERROR_NO_DEVICE)
        return usb_failure(text, LIBUSB_ERROR_NO_DEVICE);
    return {kExitTimeout, text + "; try a smaller --size, or another cable or port"};
}

void run_stream(Session& session, const Options& options)
{
    VideoStreamParam param = stream_param(options.video);
    if (const std::string advice = usbfs_advice(param); !advice.empty())
        session.console.display().warn("nyxus: " + advice);
    const int32_t status = startVideoStream(session.device(), on_frame, &param);
    bool ended_in_order = true;
    if (status >= 0) {
        const Unwatched unwatched(session.console);
        ended_in_order = wait_for_end(options.seconds);
    }
    stopVideoStream(session.device());
    if (status < 0)
        throw stream_failure(param, status);
    if (reception.frames == 0)
        throw silence_failure(*session.device());
    session.print({{"frames", reception.frames},
                   {"dropped", reception.dropped},
                   {"frames_per_second", std::round(frames_per_s() * 10) / 10}});
    reception.raw.flush();
    if (!options.raw_file.empty() && !reception.raw)
        throw Failure(kExitFailure, "cannot write all frames to '" + options.raw_file + "'");
    if (!ended_in_order)
        throw silence_failure(*session.device());
}

} // namespace

void add_stream_command(CLI::App& app, Arguments& arguments)
{
    constexpr uint32_t kMost = 1'000'000'000;
    constexpr uint32_t kMost_s = 1'000'000;
    const auto options = std::make_shared<Options>();
    CLI::App* command = add_command(app, "stream", "Receive video and measure it",
                                    "nyxus stream --count 100 --raw video.yuyv");
    add_video_options(command, options->video);
    add_number(command, "--count", options->count, 1, kMost, "Frames to receive");
    add_number(command, "--seconds", options->seconds, 1, kMost_s, "Stop after seconds");
    command->add_option("--raw", options->raw_file, "Write the frames as YUYV")->type_name("FILE");
    set_action(
        command, arguments, [options](Session& session) { run_stream(session, *options); },
        [options] {
            reception.most_frames = options->count;
            if (options->raw_file.empty())
                return;
            reception.raw.open(options->raw_file, std::ios::binary);
            if (!reception.raw)
                throw Failure(kExitFailure, "cannot write '" + options->raw_file + "'");
        });
}

} // namespace tool
