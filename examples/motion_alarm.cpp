// SPDX-License-Identifier: Apache-2.0
// Waits for the camera's motion alarm, and keeps a picture of what moved.
//
//     c++ -std=c++20 motion_alarm.cpp -o motion_alarm $(pkg-config --cflags --libs nyxus)
//     ./motion_alarm PICTURE.pgm [SERIAL|PORT|BUS:ADDRESS]       # until Ctrl-C
#include <nyxus/nyxus.hpp>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

static int fail(const nyxus::Status& status)
{
    std::fprintf(stderr, "%s\n", status.message().c_str());
    return 1;
}

/// As a grey map: the first byte of each pixel is its luminance.
static bool save(const nyxus::Picture& picture, const char* path)
{
    std::ofstream file(path, std::ios::binary);
    file << "P5 " << picture.width << ' ' << picture.height << " 255\n";
    for (size_t i = 0; i < picture.data.size(); i += 2)
        file.put(static_cast<char>(picture.data[i]));
    return file.flush().good();
}

int main(int argc, char** argv)
{
    if (argc < 2)
        return fail({NYXUS_E_RANGE, "usage: motion_alarm PICTURE.pgm [CAMERA]"});
    const auto info = nyxus::find_camera(argc > 2 ? argv[2] : "");
    if (!info)
        return fail(info.status());
    auto camera = nyxus::Camera::open(*info);
    if (!camera)
        return fail(camera.status());
    auto moved = camera->poll_motion();
    for (; moved && !*moved; moved = camera->poll_motion())
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    if (!moved)
        return fail(moved.status());
    const auto picture = nyxus::take_picture(*camera, {640, 480});
    if (!picture)
        return fail(picture.status());
    if (!save(*picture, argv[1]))
        return fail({NYXUS_E_RANGE, "the picture cannot be written"});
    std::printf("motion! %s has %ux%u pixels\n", argv[1], picture->width, picture->height);
}
