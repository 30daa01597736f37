// SPDX-License-Identifier: Apache-2.0
// Receives a frame of every size that the camera streams.
//
//     c++ -std=c++20 every_size.cpp -o every_size $(pkg-config --cflags --libs nyxus)
//     ./every_size [SERIAL|PORT|BUS:ADDRESS]
#include <nyxus/nyxus.hpp>

#include <cstdio>

namespace {

constexpr uint32_t kPatience_ms = 5000;

int fail(const char* doing, const nyxus::Status& status)
{
    std::fprintf(stderr, "%s: %s (%d)\n", doing, status.message().c_str(), status.code());
    return 1;
}

nyxus::Status receive_frame(nyxus::Camera& camera, const NyStreamFormat& format)
{
    auto stream = nyxus::Stream::start(camera, {format.width, format.height, 0, format.fourcc});
    if (!stream)
        return stream.status();
    const auto frame = stream->next(kPatience_ms);
    if (!frame)
        return frame.status();
    std::printf("%s %ux%u: %zu bytes\n", nyxus::fourcc_text(frame->fourcc).c_str(), frame->width,
                frame->height, frame->data.size());
    return {};
}

} // namespace

int main(int argc, char** argv)
{
    const auto info = nyxus::find_camera(argc > 1 ? argv[1] : "");
    if (!info)
        return fail("looking for the camera", info.status());
    auto camera = nyxus::Camera::open(*info);
    if (!camera)
        return fail("opening the camera", camera.status());
    const auto formats = nyxus::list_formats(*camera);
    if (!formats)
        return fail("listing the formats", formats.status());
    for (const NyStreamFormat& format : *formats) {
        const nyxus::Status received = receive_frame(*camera, format);
        if (!received)
            return fail("receiving a frame", received);
    }
    return formats->empty() ? 1 : 0;
}
