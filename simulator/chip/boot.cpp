// SPDX-License-Identifier: Apache-2.0
#include "boot.h"

#include <algorithm>
#include <string_view>

namespace sim {
namespace {

using namespace image_layout;

constexpr std::string_view kMaskRomSetfile = "MASKROM";

uint16_t u16_at(std::span<const uint8_t> bytes, uint32_t offset)
{
    return static_cast<uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

uint32_t u32_at(std::span<const uint8_t> bytes, uint32_t offset)
{
    return u16_at(bytes, offset) | static_cast<uint32_t>(u16_at(bytes, offset + 2)) << 16;
}

bool holds_whole_image(std::span<const uint8_t> rom)
{
    if (rom.size() < kMinImageBytes || !std::ranges::equal(rom.first(4), kMagicBytes))
        return false;
    if (image_checksum(rom.first(kHeaderChecksum)) != u32_at(rom, kHeaderChecksum))
        return false;
    const uint32_t body_length = u32_at(rom, kBodyLength);
    const size_t limit = std::min<size_t>(rom.size(), kMaxImageBytes) - kBody;
    if (body_length < kMinImageBytes - kBody || body_length > limit)
        return false;
    return image_checksum(rom.subspan(kBody, body_length)) == u32_at(rom, kBodyChecksum);
}

bool signed_for(const CameraModel& model, std::span<const uint8_t> rom)
{
    return model.internal_version.size() >= 2 &&
           rom[kSignature] == static_cast<uint8_t>(model.internal_version[0]) &&
           rom[kSignature + 1] == static_cast<uint8_t>(model.internal_version[1]);
}

RunningFirmware mask_rom_firmware()
{
    RunningFirmware firmware;
    std::ranges::copy(kMaskRomSetfile, firmware.setfile_version.begin());
    return firmware;
}

} // namespace

uint32_t image_checksum(std::span<const uint8_t> bytes)
{
    uint32_t hash = 0x811C9DC5; // FNV-1a: notices swapped and missing bytes alike
    for (const uint8_t byte : bytes)
        hash = (hash ^ byte) * 0x01000193;
    return hash;
}

RunningFirmware boot(const CameraModel& model, std::span<const uint8_t> rom)
{
    if (!holds_whole_image(rom) || !signed_for(model, rom))
        return mask_rom_firmware();

    RunningFirmware firmware;
    firmware.external = true;
    firmware.version = u16_at(rom, kFirmwareVersion);
    firmware.sensor_application_id = u16_at(rom, kSensorApplicationId);
    firmware.has_setfile = rom[kHasSetfile] != 0;
    std::ranges::copy(rom.subspan(kSetfileText, kSetfileVersionBytes),
                      firmware.setfile_version.begin());
    return firmware;
}

} // namespace sim
