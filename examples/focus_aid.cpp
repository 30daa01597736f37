// SPDX-License-Identifier: Apache-2.0
// Shows how sharp the middle of the picture is while you turn the lens: the longer the bar, the
// better.
//
//     c++ -std=c++20 focus_aid.cpp -o focus_aid $(pkg-config --cflags --libs nyxus)
//     ./focus_aid [FRAMES [SERIAL|PORT|BUS:ADDRESS]]             # without FRAMES: until Ctrl-C
#include <nyxus/nyxus.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

static int fail(const nyxus::Status& status)
{
    std::fprintf(stderr, "%s\n", status.message().c_str());
    return 1;
}

/// How much neighbouring pixels of the middle differ. YUYV has a luminance every two bytes.
static double sharpness(const nyxus::Frame& frame)
{
    const size_t row = size_t{frame.width} * 2;
    long sum = 0;
    for (size_t y = frame.height / 4; y < frame.height * 3 / 4; ++y) {
        for (size_t x = frame.width / 4; x < frame.width * 3 / 4; ++x) {
            const uint8_t* pixel = &frame.data[y * row + x * 2];
            sum += std::abs(pixel[2] - pixel[0]) + std::abs(pixel[row] - pixel[0]);
        }
    }
    return static_cast<double>(sum) * 4 / (double{1} * frame.width * frame.height);
}

int main(int argc, char** argv)
{
    const long most = argc > 1 ? std::strtol(argv[1], nullptr, 10) : -1;
    const auto info = nyxus::find_camera(argc > 2 ? argv[2] : "");
    if (!info)
        return fail(info.status());
    auto camera = nyxus::Camera::open(*info);
    if (!camera)
        return fail(camera.status());
    auto stream = nyxus::Stream::start(*camera, {640, 480});
    if (!stream)
        return fail(stream.status());
    double best = 0;
    long count = 0;
    for (auto& frame : *stream) {
        const double now = sharpness(frame);
        best = std::max(best, now);
        const auto length = static_cast<size_t>(best > 0 ? 50 * now / best : 0);
        std::printf("%6.2f of %6.2f %s\n", now, best, std::string(length, '#').c_str());
        if (++count == most)
            return 0;
    }
    return stream->failure() ? 0 : fail(stream->failure());
}
