// SPDX-License-Identifier: Apache-2.0
#include "firmware_image.h"

#include "boot.h"
#include "prng.h"

#include <algorithm>
#include <span>

namespace sim {
namespace {

using namespace image_layout;

constexpr uint32_t kRomSizeUnit = 512;
constexpr uint32_t kSpiRomBytes = 0x10000; // what firmware states for any SPI flash
constexpr uint16_t kFactorySensorApplicationId = 0x0021;
constexpr std::string_view kFactorySetfile = "SF-01.00";

void put_u16(std::span<uint8_t> bytes, uint32_t offset, uint16_t value)
{
    bytes[offset] = static_cast<uint8_t>(value);
    bytes[offset + 1] = static_cast<uint8_t>(value >> 8);
}

void put_u32(std::span<uint8_t> bytes, uint32_t offset, uint32_t value)
{
    put_u16(bytes, offset, static_cast<uint16_t>(value));
    put_u16(bytes, offset + 2, static_cast<uint16_t>(value >> 16));
}

void put_rom_header(std::span<uint8_t> image, const ImageRequest& request)
{
    std::ranges::fill(image.subspan(kBody, kCode - kBody), uint8_t{0});
    image[kSignature] = static_cast<uint8_t>(request.signature[0]);
    image[kSignature + 1] = static_cast<uint8_t>(request.signature[1]);
    image[request.size_at_alternative_byte ? kRomSizeAlternative : kRomSize] =
        static_cast<uint8_t>(request.rom_size_bytes / kRomSizeUnit);
    put_u16(image, kFirmwareVersion, request.version);
    put_u16(image, kSensorApplicationId, request.sensor_application_id);
    image[kHasSetfile] = request.setfile_version.empty() ? 0 : 1;
    const auto text = request.setfile_version.substr(0, kSetfileVersionBytes - 1);
    std::ranges::copy(text, image.subspan(kSetfileText).begin());
}

} // namespace

void put_header(std::span<uint8_t> image)
{
    const auto body = image.subspan(kBody);
    std::ranges::copy(kMagicBytes, image.begin());
    put_u32(image, kBodyLength, static_cast<uint32_t>(body.size()));
    put_u32(image, kBodyChecksum, image_checksum(body));
    put_u32(image, kHeaderChecksum, image_checksum(image.first(kHeaderChecksum)));
}

ImageRequest factory_image_request(const CameraModel& model)
{
    const bool spi = model.rom_kind == RomKind::kSpiFlash;
    ImageRequest request;
    std::copy_n(model.internal_version.begin(), std::min<size_t>(2, model.internal_version.size()),
                request.signature.begin());
    request.version = model.factory_firmware_version;
    request.sensor_application_id = kFactorySensorApplicationId;
    request.setfile_version = kFactorySetfile;
    request.rom_size_bytes = spi ? kSpiRomBytes : model.eeprom.size_bytes;
    request.size_at_alternative_byte = model.size_at_alternative_byte;
    request.image_bytes = model.factory_firmware_bytes;
    request.seed = model.factory_firmware_seed;
    return request;
}

std::vector<uint8_t> make_firmware_image(const ImageRequest& request)
{
    std::vector<uint8_t> image(std::clamp(request.image_bytes, kMinImageBytes, kMaxImageBytes));
    Prng prng(request.seed);
    std::ranges::generate(image, [&prng] { return prng.next_byte(); });
    if (image.back() == 0xFF) // would be taken for erased ROM
        image.back() = 0x5A;
    put_rom_header(image, request);
    put_header(image);
    return image;
}

} // namespace sim
