// SPDX-License-Identifier: Apache-2.0
// The camera that a command is for.
#include "commands.h"
#include "failure.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace tool {

namespace {

std::vector<CameraEntry> matching_now(const std::string& choice)
{
    // A session sees the bus as it is when it starts; an old one may need a udev daemon to learn.
    std::vector<CameraEntry> cameras = list_cameras();
    if (!choice.empty())
        std::erase_if(cameras, [&](const CameraEntry& entry) { return !entry.matches(choice); });
    return cameras;
}

/// Is there, and can be opened: the udev daemon needs a moment to give a new node its permissions.
bool is_there(const std::vector<CameraEntry>& cameras)
{
    return !cameras.empty() && try_open(cameras.front()).libusb_code == 0;
}

void wait_for_plug(Console& console, const std::string& choice, unsigned wait_s)
{
    constexpr std::chrono::milliseconds kPollInterval{50};
    if (is_there(matching_now(choice)))
        return;
    const Unwatched unwatched(console);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(wait_s);
    console.display().begin("waiting for the camera", 0);
    bool there = false;
    while (!there && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(kPollInterval);
        there = is_there(matching_now(choice));
    }
    if (there) {
        console.display().end();
    } else {
        console.display().abandon(); // what follows says what is wrong
    }
}

} // namespace

std::vector<CameraEntry> matching_cameras(Console& console, const Arguments& arguments)
{
    if (arguments.wait_s.value_or(0) > 0)
        wait_for_plug(console, arguments.camera, *arguments.wait_s);
    return matching_now(arguments.camera);
}

Camera open_chosen(Console& console, const Arguments& arguments)
{
    if (arguments.wait_s.value_or(0) > 0)
        wait_for_plug(console, arguments.camera, *arguments.wait_s);
    return Camera::open(select_camera(list_cameras(), arguments.camera));
}

Camera open_with_rom(Console& console, const Arguments& arguments)
{
    constexpr uint32_t kKib = 1024;
    Camera camera = open_chosen(console, arguments);
    if (camera.rom_state() == RomState::kUnknown) {
        if (arguments.eeprom_kib == 0) {
            throw Failure(kExitNotSupported,
                          camera.name() +
                              " has no firmware in its ROM, and no SPI flash answers; if it has an "
                              "EEPROM, 'nyxus upgrade FILE --eeprom KIB' programs it");
        }
        camera.assume_eeprom(arguments.eeprom_kib * kKib);
    }
    return camera;
}

} // namespace tool
