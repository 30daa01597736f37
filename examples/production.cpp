// SPDX-License-Identifier: Apache-2.0
// Programs every camera that is connected, restarts it, and tells which ones have passed.
//
//     c++ -std=c++20 production.cpp -o production $(pkg-config --cflags --libs nyxus-engine)
//     ./production firmware.bin
#include <nyxus/engine.hpp>

#include <cstdio>

namespace engine = nyxus::engine;

/// "from 0x0203 to 0x0205", or why not.
static engine::Result<std::string> program(const nyxus::CameraInfo& info,
                                           const engine::Firmware& image)
{
    const engine::Backups backups;
    auto camera = engine::Camera::open(info, engine::Use::kTransfers);
    if (!camera)
        return camera.status();
    const engine::Report report = engine::upgrade(*camera, {image}, {}, backups, {});
    if (!report.status)
        return report.status;
    const auto restarted = engine::restart(*std::move(camera), 30, backups, {});
    if (!restarted)
        return restarted.status();
    const engine::Status started = engine::check_started(*restarted, backups);
    if (!started)
        return started;
    return "from " + report.version_before + " to " + restarted->version();
}

int main(int argc, char** argv)
{
    const auto image = engine::Firmware::load(argc > 1 ? argv[1] : "");
    if (!image) {
        std::fprintf(stderr, "%s\n", image.status().text().c_str());
        return 1;
    }
    const auto cameras = nyxus::list_cameras().value_or({});
    bool passed = !cameras.empty();
    for (const nyxus::CameraInfo& info : cameras) {
        const auto result = program(info, *image);
        std::printf("%s %s: %s\n", result ? "PASS" : "FAIL", info.serial.c_str(),
                    result ? result->c_str() : result.status().text().c_str());
        passed = passed && result;
    }
    return passed ? 0 : 1;
}
