// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine.hpp>

#include <cstdio>

int main()
{
    const auto info = nyxus::find_camera();
    if (!info)
        return 1;
    const auto camera = nyxus::engine::Camera::open(*info);
    if (!camera) {
        std::fprintf(stderr, "%s\n", camera.status().text().c_str());
        return 1;
    }
    std::printf("%s\n", camera->firmware_sentence().c_str()); // "runs external firmware 0x..."
}
