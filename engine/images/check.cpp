// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine/images.hpp>

#include "text/format.h"
#include "text/printable.h"

namespace nyxus::engine {

using text::format;

namespace {

constexpr uint32_t kSpiRomSize = 0x10000;

constexpr char kNoRoomForMfi[] = "the camera's ROM is too small for an MFi image";

bool has_room_for_mfi(const Camera& camera, size_t size)
{
    return NYXUS_MFI_ROM_ADDR + size <= camera.rom_size();
}

/// "" when the images are for the camera.
std::string refuse(const Camera& camera, const Images& images)
{
    const NyDevice& device = *camera.device();
    const Firmware& firmware = images.firmware;
    const size_t size = firmware.bytes().size();
    const std::string needed(device.szIntFwVer, 2);
    if (firmware.signature() != needed) {
        return "the image is for another chip: its signature is '" +
               text::printable(firmware.signature()) + "', but this camera (" + camera.chip() +
               ") needs '" + text::printable(needed) + "'";
    }
    if (size > device.dwExtRomSize) {
        return format("the image has %zu bytes, but the camera's ROM only %u", size,
                      device.dwExtRomSize);
    }
    // On a camera with SPI flash, a smaller size would make the probe look for an EEPROM. The other
    // way round nothing is certain: EEPROMs may have 64 KiB, and the probe takes that for the
    // largest type.
    const uint32_t rom_size = firmware.rom_size(device.oBackend.family == IC_FAMILY_LARCH);
    if (camera.has_spi_flash() && rom_size != kSpiRomSize) {
        return format(
            "the image is made for a ROM of %u KiB, but the camera has an SPI flash "
            "(64 KiB)",
            rom_size / 1024);
    }
    if (images.mfi && size > NYXUS_MFI_ROM_ADDR) {
        return format(
            "the firmware ends at 0x%04zX and would overwrite the MFi image, which lies "
            "at 0x%04X",
            size, NYXUS_MFI_ROM_ADDR);
    }
    if (images.mfi && !has_room_for_mfi(camera, images.mfi->bytes().size()))
        return kNoRoomForMfi;
    return {};
}

} // namespace

Status check_images(const Camera& camera, const Images& images)
{
    const std::string reason = refuse(camera, images);
    return reason.empty() ? Status()
                          : Status(Reason::kWrongImage, reason + "; nothing was written");
}

Status check_image(const Camera& camera, const ImageFacts& facts)
{
    std::string reason;
    if (facts.contents == ImageFacts::Contents::kMfi) {
        reason = has_room_for_mfi(camera, facts.bytes) ? "" : kNoRoomForMfi;
    } else if (!facts.firmware) {
        reason = "it holds no firmware";
    } else if (facts.kind && !facts.kind->problem.empty()) {
        reason = "it is " + facts.kind->problem;
    } else {
        reason = refuse(camera, {*facts.firmware});
    }
    return reason.empty() ? Status() : Status(Reason::kWrongImage, reason);
}

} // namespace nyxus::engine
