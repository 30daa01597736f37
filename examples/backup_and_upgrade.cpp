// SPDX-License-Identifier: Apache-2.0
// Keeps what is in the camera's ROM, programs new firmware, and restarts the camera.
//
//     c++ -std=c++17 backup_and_upgrade.cpp -o backup_and_upgrade $(pkg-config --cflags --libs
//     nyxus)
//     ./backup_and_upgrade firmware.bin backup.rom [SERIAL|PORT|BUS:ADDRESS]
#include <nyxus/nyxus.hpp>

#include <cstdio>
#include <fstream>

namespace {

int fail(const char* doing, const nyxus::Status& status)
{
    std::fprintf(stderr, "%s: %s (%d)\n", doing, status.message().c_str(), status.code());
    return 1;
}

void show(const nyxus::Progress& progress)
{
    if (progress.total == 0) {
        std::printf("%s ...\n", nyxus::phase_name(progress.phase));
    } else {
        std::printf("\r%s %3u%%%s", nyxus::phase_name(progress.phase),
                    progress.done * 100 / progress.total,
                    progress.done == progress.total ? "\n" : "");
    }
    std::fflush(stdout);
}

bool write_file(const char* path, const std::vector<uint8_t>& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return file.flush().good();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: backup_and_upgrade IMAGE BACKUP [CAMERA]\n");
        return 2;
    }
    const auto image = nyxus::FirmwareImage::load(argv[1]);
    if (!image)
        return fail("loading the image", image.status());
    const auto info = nyxus::find_camera(argc > 3 ? argv[3] : "");
    if (!info)
        return fail("looking for the camera", info.status());
    auto camera = nyxus::Camera::open(*info);
    if (!camera)
        return fail("opening the camera", camera.status());
    std::printf("%s, firmware 0x%04X\n", camera->chip().c_str(), camera->firmware_version());

    const auto contents = camera->rom().dump(show);
    if (!contents)
        return fail("reading the ROM", contents.status());
    if (!write_file(argv[2], *contents)) {
        std::perror(argv[2]);
        return 1;
    }
    nyxus::UpgradeOptions options;
    options.progress = show;
    if (const nyxus::Status done = camera->rom().upgrade(*image, options); !done)
        return fail("upgrading", done);
    (void)camera->restart(); // fails when the chip is quicker than its answer
}
