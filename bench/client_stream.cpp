// SPDX-License-Identifier: Apache-2.0
// Video by the library and by bare libuvc in turns, on the camera of 'nyxus-sim run': frames per
// second, processor time, and what is copied. bench_client_stream NAME WIDTH HEIGHT
#include <nyxus/video.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

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
    void frame(const uvc_frame_t& frame)
    {
        if (frame.data_bytes != width * height * 2)
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

void start_library(NyDevice* device, VideoStreamParam* param)
{
    must(startVideoStream(
             device, [](uvc_frame_t* frame, VideoStreamParam*) { counter.frame(*frame); }, param) >=
             0,
         "startVideoStream");
}

/// With what the library has negotiated before.
void start_libuvc(NyDevice* device)
{
    must(uvc_start_streaming(
             device->uvc_handle, &device->stream_ctrl,
             [](uvc_frame_t* frame, void*) { counter.frame(*frame); }, nullptr, 0) >= 0,
         "uvc_start_streaming");
}

struct Result {
    bench::Cost cost;
    bench::Copies copied;
};

template <typename Start, typename Stop>
Result stream(uint32_t frames, const Start& start, const Stop& stop)
{
    start();
    counter.wait_for(3); // settled
    bench::count_copies();
    const bench::Cost cost = bench::cost_of([&] { counter.wait_for(frames); });
    const Result result{cost, bench::copies()};
    stop();
    return result;
}

void measure(benchmark::State& state)
{
    bench::UsbCamera camera;
    NyDevice* const device = camera.device();
    const uint32_t frames = bench::is_quick() ? 20 : 100;
    VideoStreamParam param = {0, width, height, 0, nullptr};
    const auto by_library = [&] {
        return stream(
            frames, [&] { start_library(device, &param); }, [&] { stopVideoStream(device); });
    };
    const auto by_libuvc = [&] {
        return stream(
            frames, [&] { start_libuvc(device); }, [&] { uvc_stop_streaming(device->uvc_handle); });
    };
    bench::Pairs pairs(frames);
    bench::Copies a_copies{}, b_copies{};
    bool a_first = true;
    for (auto _ : state) {
        // The library goes first in the first pair: it negotiates.
        const Result first = a_first ? by_library() : by_libuvc();
        const Result second = a_first ? by_libuvc() : by_library();
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
    must(argc == 4, "usage: bench_client_stream NAME WIDTH HEIGHT");
    width = static_cast<uint32_t>(std::atoi(argv[2]));
    height = static_cast<uint32_t>(std::atoi(argv[3]));
    benchmark::RegisterBenchmark(argv[1], measure)->UseManualTime()->Iterations(bench::pairs(20));
    benchmark::RunSpecifiedBenchmarks();
}
