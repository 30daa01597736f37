// SPDX-License-Identifier: Apache-2.0
// Feeds the readers of camera descriptions and of lists of parts with any text. A camera that could
// be described has to boot, and to show its descriptors.
//
// Input: the text.
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <vector>

#include "cameras/camera_file.h"
#include "chip/clock.h"
#include "usb/usb_camera.h"

namespace {

template <typename Read>
bool is_understood(Read read)
{
    try {
        read();
        return true;
    } catch (const sim::DescriptionError& error) {
        if (*error.what() == '\0')
            std::abort(); // says nothing
        return false;
    }
}

void boot(const sim::CameraModel& model)
{
    sim::VirtualClock clock;
    sim::UsbCamera camera(model, clock, "FUZZ");
    const std::lock_guard lock(camera.mutex());
    constexpr uint8_t kIn = 0x80;
    constexpr uint8_t kGetDescriptor = 6;
    constexpr uint16_t kDescriptors[] = {0x0100, 0x0200, 0x0302};
    for (const uint16_t descriptor : kDescriptors) {
        std::vector<uint8_t> answer(1024);
        (void)camera.control({kIn, kGetDescriptor, descriptor, 0, 1024}, answer);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    (void)is_understood([&] { boot(sim::parse_camera_file(text, "camera.toml")); });
    (void)is_understood([&] { (void)sim::parse_flash_parts(text, "flash.toml"); });
    (void)is_understood([&] { (void)sim::parse_eeprom_parts(text, "eeprom.toml"); });
    return 0;
}
