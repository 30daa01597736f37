// SPDX-License-Identifier: Apache-2.0
// Records all cameras at once, each in a thread and into a file of its own: SERIAL.mjpeg, or
// SERIAL.yuyv where a camera has no MJPEG. ffmpeg reads both.
//
//     c++ -std=c++20 -pthread recorder.cpp -o recorder $(pkg-config --cflags --libs nyxus)
//     ./recorder FRAMES [WIDTHxHEIGHT]
#include <nyxus/nyxus.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <thread>

namespace {

struct Order {
    long frames;
    uint32_t width;
    uint32_t height;
};

/// Streams one camera in this thread; opening is one thread at a time.
nyxus::Status record(const nyxus::CameraInfo& info, const Order& order)
{
    static std::mutex opening;
    std::unique_lock lock(opening);
    auto camera = nyxus::Camera::open(info);
    lock.unlock();
    if (!camera)
        return camera.status();
    const auto formats = nyxus::list_formats(*camera);
    if (!formats)
        return formats.status();
    const bool has_mjpeg = std::any_of(formats->begin(), formats->end(), [&](const auto& format) {
        return format.fourcc == NYXUS_FOURCC_MJPEG && format.width == order.width &&
               format.height == order.height;
    });
    const uint32_t fourcc = has_mjpeg ? NYXUS_FOURCC_MJPEG : NYXUS_FOURCC_YUYV;
    auto stream = nyxus::Stream::start(*camera, {order.width, order.height, 0, fourcc});
    if (!stream)
        return stream.status();
    const std::string name = info.serial + (has_mjpeg ? ".mjpeg" : ".yuyv");
    std::ofstream file(name, std::ios::binary);
    long left = order.frames;
    for (auto& frame : *stream) {
        file.write(reinterpret_cast<const char*>(frame.data.data()),
                   static_cast<std::streamsize>(frame.data.size()));
        if (--left == 0)
            stream->stop();
        if (left == 0 || !file)
            break;
    }
    if (!stream->failure())
        return stream->failure();
    if (!file.flush())
        return {nyxus::Reason::kFile, "cannot write " + name};
    const NyStreamStatus status = stream->status();
    std::printf("%s: %ld frames, %llu lost\n", name.c_str(), order.frames,
                static_cast<unsigned long long>(status.incomplete + status.late));
    return {};
}

} // namespace

int main(int argc, char** argv)
{
    Order order = {argc > 1 ? std::max(std::strtol(argv[1], nullptr, 10), 1L) : 100, 640, 480};
    if (argc > 2 && std::sscanf(argv[2], "%ux%u", &order.width, &order.height) != 2) {
        std::fprintf(stderr, "usage: recorder FRAMES [WIDTHxHEIGHT]\n");
        return 2;
    }
    const auto cameras = nyxus::list_cameras();
    std::atomic<bool> failed{!cameras || cameras->empty()};
    const auto found = cameras.value_or({});
    std::vector<std::thread> threads;
    for (const nyxus::CameraInfo& info : found) {
        threads.emplace_back([&] {
            const nyxus::Status status = record(info, order);
            if (!status) {
                std::fprintf(stderr, "%s: %s\n", info.serial.c_str(), status.message().c_str());
                failed = true;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return failed ? 1 : 0;
}
