// SPDX-License-Identifier: Apache-2.0
// Video by the library and by bare libuvc in turns, on the camera of 'nyxus-sim run': frames per
// second, processor time, and what is copied. bench_client_stream NAME WAY WIDTH HEIGHT
#include <nyxus/streaming.h>
#include <nyxus/video.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>

#include "copies.h"
#include "paired.h"
#include "usb_camera.h"

namespace {

using bench::must;

uint32_t width;
uint32_t height;

/// Counts complete frames, and wakes whoever waits for the last one.
class FrameCounter {
public:
    void frame(size_t bytes)
    {
        if (bytes != size_t{width} * height * 2)
            return;
        const std::lock_guard lock(mutex_);
        if (++count_ == wanted_)
            reached_.notify_all();
    }

    void wait_for(uint32_t frames)
    {
        std::unique_lock lock(mutex_);
        count_ = 0;
        wanted_ = frames;
        must(reached_.wait_for(lock, std::chrono::seconds(60), [&] { return count_ >= wanted_; }),
             "no frames for a minute");
    }

private:
    std::mutex mutex_;
    std::condition_variable reached_;
    uint32_t count_ = 0;
    uint32_t wanted_ = 0;
};

FrameCounter counter;

/// One of the things that are compared: video, until it has been stopped.
class Way {
public:
    virtual ~Way() = default;
    virtual void start() = 0;
    virtual void wait_for(uint32_t frames) { counter.wait_for(frames); }
    virtual void stop() = 0;
};

class Published : public Way {
public:
    explicit Published(NyDevice* device) : device_(device), param_{0, width, height, 0, nullptr} {}
    void start() override
    {
        const auto on_frame = [](uvc_frame_t* frame, VideoStreamParam*) {
            counter.frame(frame->data_bytes);
        };
        must(startVideoStream(device_, on_frame, &param_) >= 0, "startVideoStream");
    }
    void stop() override { stopVideoStream(device_); }

private:
    NyDevice* device_;
    VideoStreamParam param_;
};

/// nyxus_stream_start(), with a callback, or asked for each frame.
class AnyFormat : public Way {
public:
    AnyFormat(NyDevice* device, NyStreamCallback callback) : device_(device), callback_(callback) {}
    void start() override
    {
        const NyStreamRequest request = {NYXUS_FOURCC_YUYV, width, height, 0};
        must(nyxus_stream_start(device_, &request, callback_, nullptr, &stream_) == 0,
             "nyxus_stream_start");
    }
    void wait_for(uint32_t frames) override
    {
        constexpr uint32_t kPatience_ms = 60000;
        if (callback_ != nullptr)
            return Way::wait_for(frames);
        NyStreamFrame frame = {};
        while (frames-- > 0)
            must(nyxus_stream_next(stream_, kPatience_ms, &frame) == 0, "nyxus_stream_next");
    }
    void stop() override { nyxus_stream_free(stream_); }

private:
    NyDevice* device_;
    NyStreamCallback callback_;
    NyStream* stream_ = nullptr;
};

/// With what the library has negotiated before.
class Libuvc : public Way {
public:
    explicit Libuvc(NyDevice* device) : device_(device) {}
    void start() override
    {
        const auto on_frame = [](uvc_frame_t* frame, void*) { counter.frame(frame->data_bytes); };
        must(uvc_start_streaming(device_->uvc_handle, &device_->stream_ctrl, on_frame, nullptr,
                                 0) >= 0,
             "uvc_start_streaming");
    }
    void stop() override { uvc_stop_streaming(device_->uvc_handle); }

private:
    NyDevice* device_;
};

std::unique_ptr<Way> way_named(std::string_view name, NyDevice* device)
{
    if (name == "published")
        return std::make_unique<Published>(device);
    if (name == "callback") {
        return std::make_unique<AnyFormat>(
            device, [](const NyStreamFrame* frame, void*) { counter.frame(frame->size); });
    }
    must(name == "next", "the ways are published, callback and next");
    return std::make_unique<AnyFormat>(device, nullptr);
}

struct Result {
    bench::Cost cost;
    bench::Copies copied;
};

Result stream(uint32_t frames, Way& way)
{
    way.start();
    way.wait_for(3); // settled
    bench::count_copies();
    const bench::Cost cost = bench::cost_of([&] { way.wait_for(frames); });
    const Result result{cost, bench::copies()};
    way.stop();
    return result;
}

void measure(benchmark::State& state, std::string_view way)
{
    bench::UsbCamera camera;
    NyDevice* const device = camera.device();
    constexpr uint32_t frames = 100; // of 20 the first ones would be a good part
    const std::unique_ptr<Way> library = way_named(way, device);
    Libuvc libuvc(device);
    bench::Pairs pairs(frames);
    bench::Copies a_copies{}, b_copies{};
    bool a_first = true;
    for (auto _ : state) {
        // The library goes first in the first pair: it negotiates.
        const Result first = a_first ? stream(frames, *library) : stream(frames, libuvc);
        const Result second = a_first ? stream(frames, libuvc) : stream(frames, *library);
        const Result& a = a_first ? first : second;
        const Result& b = a_first ? second : first;
        a_first = !a_first;
        state.SetIterationTime(a.cost.wall_s + b.cost.wall_s);
        pairs.add(a.cost, b.cost);
        a_copies += a.copied;
        b_copies += b.copied;
    }
    const double bytes = static_cast<double>(state.iterations()) * frames * width * height * 2;
    state.counters["a_copies"] = static_cast<double>(a_copies.libuvc) / bytes;
    state.counters["b_copies"] = static_cast<double>(b_copies.libuvc) / bytes;
    state.counters["library_copies"] = static_cast<double>(a_copies.library) / bytes;
    pairs.report(state.counters);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    must(argc == 5, "usage: bench_client_stream NAME WAY WIDTH HEIGHT");
    width = static_cast<uint32_t>(std::atoi(argv[3]));
    height = static_cast<uint32_t>(std::atoi(argv[4]));
    const std::string_view way = argv[2];
    benchmark::RegisterBenchmark(argv[1], measure, way)
        ->UseManualTime()
        ->Iterations(bench::pairs(20));
    benchmark::RunSpecifiedBenchmarks();
}
