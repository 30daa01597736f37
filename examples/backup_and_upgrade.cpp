// SPDX-License-Identifier: Apache-2.0
// Keeps what is in the camera's ROM, programs new firmware, reads it back, and restarts the camera.
//
//     c++ -std=c++20 backup_and_upgrade.cpp -o backup_and_upgrade $(pkg-config --cflags --libs
//     nyxus-engine)
//     ./backup_and_upgrade firmware.bin [SERIAL|PORT|BUS:ADDRESS]
#include <nyxus/engine.hpp>

#include <cstdio>

namespace {

namespace engine = nyxus::engine;

int fail(const char* doing, const nyxus::Status& status)
{
    std::fprintf(stderr, "%s: %s (%d)\n", doing, status.message().c_str(), status.code());
    return 1;
}

void show(const engine::Event& event)
{
    using Kind = engine::Event::Kind;
    if (event.kind == Kind::kBackup)
        std::printf("backup: %s\n", event.text.c_str());
    if (event.kind == Kind::kBegins && event.total == 0)
        std::printf("%s ...\n", to_text(event.phase));
    if (event.kind == Kind::kAdvances) {
        std::printf("\r%s %3u%%%s", to_text(event.phase),
                    static_cast<unsigned>(event.done * 100 / event.total),
                    event.done == event.total ? "\n" : "");
    }
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: backup_and_upgrade IMAGE [CAMERA]\n");
        return 2;
    }
    auto image = engine::Firmware::load(argv[1]);
    if (!image)
        return fail("loading the image", image.status());
    const auto info = nyxus::find_camera(argc > 2 ? argv[2] : "");
    if (!info)
        return fail("looking for the camera", info.status());
    auto camera = engine::Camera::open(*info);
    if (!camera)
        return fail("opening the camera", camera.status());
    std::printf("%s, firmware 0x%04X\n", camera->chip().c_str(), camera->firmware_version());

    const engine::Backups backups;
    const engine::Report report =
        engine::upgrade(*camera, {*std::move(image)}, {}, backups, {show, {}});
    if (!report.status)
        return fail("upgrading", report.status);
    const auto restarted = engine::restart(*std::move(camera), 5, backups, {});
    if (!restarted)
        return fail("restarting", restarted.status());
    std::printf("%s\n", restarted->firmware_sentence().c_str());
}
