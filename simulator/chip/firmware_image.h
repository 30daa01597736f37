// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "model.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// What a generated firmware image shall hold.
struct ImageRequest {
    std::array<char, 2> signature = {};
    uint16_t version = 0;
    uint16_t sensor_application_id = 0;
    std::string_view setfile_version;      ///< at most 10 characters; empty: no set-file
    uint32_t rom_size_bytes = 0;           ///< what the ROM header states
    bool size_at_alternative_byte = false; ///< and where
    uint32_t image_bytes = 0;              ///< real size, 0x80 to 32768
    uint64_t seed = 0;
};

/// The model's factory image; change what shall differ.
ImageRequest factory_image_request(const CameraModel& model);

/// An image that boots, of exactly `image_bytes` bytes (brought into range), whose last byte is
/// never 0xFF. The same request gives the same bytes on every machine.
std::vector<uint8_t> make_firmware_image(const ImageRequest& request);

/// Makes the header of an image anew, which names the body and is checked itself: after each
/// change.
void put_header(std::span<uint8_t> image);

/// Where an accessory-information image is programmed.
inline constexpr uint16_t kMfiRomAddress = 0x6000;

/// An accessory-information image of at most 4096 bytes that carries `serial` (cut to 32
/// characters) as USB string descriptor and as serial-number record.
std::vector<uint8_t> make_mfi_image(uint64_t seed, std::string_view serial);

/// The serial number in the USB string descriptor of the image in a ROM; "" where there is none.
std::string mfi_serial(std::span<const uint8_t> rom);

} // namespace sim
