// SPDX-License-Identifier: Apache-2.0
#include "failure.h"
#include "json_text.h"
#include "picture_size.h"
#include "text.h"
#include "whole_file.h"

#include <png.h>
#include <unistd.h>
#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace tool {

namespace {

/// The library tries without end to get a complete frame; this ends the program instead.
class Watchdog {
public:
    Watchdog(const Session& session, uint32_t wait_s)
        : thread_([this, &session, wait_s] { run(session, wait_s); })
    {
    }
    ~Watchdog()
    {
        {
            const std::lock_guard lock(mutex_);
            done_ = true;
        }
        changed_.notify_one();
        thread_.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    void run(const Session& session, uint32_t wait_s)
    {
        std::unique_lock lock(mutex_);
        if (changed_.wait_for(lock, std::chrono::seconds(wait_s), [this] { return done_; }))
            return;
        const Failure failure(
            kExitTimeout,
            format("no complete frame within %u s; try a longer --wait or a smaller --size",
                   wait_s));
        Display& display = session.console.display();
        if (session.arguments.json)
            display.say(json_error(failure));
        display.warn("nyxus: " + failure.text());
        _exit(failure.code());
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool done_ = false;
    std::thread thread_;
};

uint8_t clamped(int value)
{
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

/// A pixel of limited-range video, in 1/256 steps.
void put_rgb(uint8_t* rgb, int y, int cb, int cr)
{
    const int luma = 298 * (y - 16) + 128;
    rgb[0] = clamped((luma + 409 * (cr - 128)) / 256);
    rgb[1] = clamped((luma - 100 * (cb - 128) - 208 * (cr - 128)) / 256);
    rgb[2] = clamped((luma + 516 * (cb - 128)) / 256);
}

std::vector<uint8_t> rgb_of(const uvc_frame_t& frame, const VideoStreamParam& param)
{
    const size_t bytes = size_t{param.width} * param.height * 2;
    if (frame.data == nullptr || frame.data_bytes < bytes)
        throw Failure(kExitFailure, "the camera sent an incomplete frame");
    const auto* yuyv = static_cast<const uint8_t*>(frame.data);
    std::vector<uint8_t> rgb(bytes / 2 * 3);
    for (size_t i = 0; i < bytes / 4; ++i) {
        const uint8_t* pair = yuyv + 4 * i;
        put_rgb(&rgb[6 * i], pair[0], pair[1], pair[3]);
        put_rgb(&rgb[6 * i + 3], pair[2], pair[1], pair[3]);
    }
    return rgb;
}

std::vector<uint8_t> png_of(const std::vector<uint8_t>& rgb, const VideoStreamParam& param)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = param.width;
    image.height = param.height;
    image.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::vector<uint8_t> png(size);
    if (png_image_write_to_memory(&image, png.data(), &size, 0, rgb.data(), 0, nullptr) == 0)
        throw Failure(kExitFailure, std::string("cannot make a PNG: ") + image.message);
    png.resize(size);
    return png;
}

std::vector<uint8_t> take_picture(Session& session, VideoStreamParam& param, uint32_t wait_s)
{
    const Unwatched unwatched(session.console);
    const Watchdog watchdog(session, wait_s);
    const int32_t status = startVideoStream_snapshot(session.device(), nullptr, &param);
    std::vector<uint8_t> rgb;
    if (status == 0 && param.frame != nullptr)
        rgb = rgb_of(*param.frame, param);
    stopVideoStream(session.device());
    if (rgb.empty())
        throw stream_failure(param, status);
    return rgb;
}

struct Options {
    std::string file;
    VideoOptions video;
};

void run_snapshot(Session& session, const Options& options)
{
    VideoStreamParam param = stream_param(options.video);
    constexpr unsigned kUsualWait_s = 10;
    const unsigned wait_s = session.arguments.wait_s.value_or(kUsualWait_s);
    const std::vector<uint8_t> png = png_of(take_picture(session, param, wait_s), param);
    write_file(options.file, png);
    session.print({{"snapshot", options.file}, {"width", param.width}, {"height", param.height}});
}

} // namespace

void add_snapshot_command(Command& app, Arguments& arguments)
{
    const auto options = std::make_shared<Options>();
    Command& command =
        add_command(app, "snapshot", "Save a picture as PNG", "nyxus snapshot shot.png");
    add_file(command, &options->file, "File to write");
    add_video_options(command, options->video);
    set_action(
        command, arguments, [options](Session& session) { run_snapshot(session, *options); },
        [options] { refuse_impossible_target(options->file); });
}

} // namespace tool
