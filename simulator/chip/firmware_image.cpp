// SPDX-License-Identifier: Apache-2.0
#include "firmware_image.h"

#include "boot.h"
#include "prng.h"

#include <algorithm>
#include <numeric>
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

namespace {

constexpr size_t kHeaderBytes = 0x20;
constexpr size_t kMaxSerialChars = 32;
constexpr uint8_t kStringDescriptor = 0x03;
constexpr uint16_t kPrefixVersion = 0x0102;
constexpr uint16_t kSerialRecord = 3;

// Offsets in the header; big-endian.
constexpr size_t kPrefixVersionAt = 0x00;
constexpr size_t kListEndAt = 0x02;
constexpr size_t kListAddressAt = 0x04;
constexpr size_t kSerialLengthAt = 0x0E;
constexpr size_t kSerialAddressAt = 0x10;
constexpr size_t kModeAt = 0x1E;
constexpr size_t kChecksumAt = 0x1F;

using Image = std::vector<uint8_t>;

void put_be16(Image& image, size_t offset, size_t value)
{
    image[offset] = static_cast<uint8_t>(value >> 8);
    image[offset + 1] = static_cast<uint8_t>(value);
}

size_t get_be16(std::span<const uint8_t> image, size_t offset)
{
    return static_cast<size_t>(image[offset] << 8 | image[offset + 1]);
}

void append_descriptor(Image& image, std::string_view serial)
{
    image.push_back(static_cast<uint8_t>(2 + 2 * serial.size()));
    image.push_back(kStringDescriptor);
    for (const char character : serial) {
        image.push_back(static_cast<uint8_t>(character));
        image.push_back(0);
    }
}

template <typename Bytes>
void append_record(Image& image, uint16_t type, const Bytes& payload)
{
    const size_t start = image.size();
    image.resize(start + 4);
    put_be16(image, start, 4 + payload.size());
    put_be16(image, start + 2, type);
    image.insert(image.end(), payload.begin(), payload.end());
}

void append_random_record(Image& image, uint16_t type, Prng& prng)
{
    std::vector<uint8_t> payload(8 + prng.next() % 40);
    std::ranges::generate(payload, [&prng] { return prng.next_byte(); });
    append_record(image, type, payload);
}

} // namespace

std::vector<uint8_t> make_mfi_image(uint64_t seed, std::string_view serial)
{
    serial = serial.substr(0, kMaxSerialChars);
    Prng prng(seed);
    Image image(kHeaderBytes);
    std::ranges::generate(image, [&prng] { return prng.next_byte(); });

    const size_t descriptor = image.size();
    append_descriptor(image, serial);
    const size_t list = image.size();
    append_random_record(image, 1, prng);
    append_random_record(image, 2, prng);
    append_record(image, kSerialRecord, serial);
    append_random_record(image, 4, prng);
    const size_t list_end = image.size(); // an image offset, unlike the addresses
    image.push_back(0x00);                // closes the image with a byte that is not erased

    put_be16(image, kPrefixVersionAt, kPrefixVersion);
    put_be16(image, kListEndAt, list_end);
    put_be16(image, kListAddressAt, kMfiRomAddress + list);
    put_be16(image, kSerialLengthAt, list - descriptor);
    put_be16(image, kSerialAddressAt, kMfiRomAddress + descriptor);
    image[kModeAt] = 0x01;
    image[kChecksumAt] = 0;
    image[kChecksumAt] =
        static_cast<uint8_t>(-std::accumulate(image.begin(), image.end(), 0)); // sums to zero
    return image;
}

std::string mfi_serial(std::span<const uint8_t> rom)
{
    constexpr size_t kMostBytes = 4096;
    if (rom.size() < kMfiRomAddress + kHeaderBytes)
        return {};
    const auto image =
        rom.subspan(kMfiRomAddress, std::min(kMostBytes, rom.size() - kMfiRomAddress));
    const size_t size = get_be16(image, kSerialLengthAt);
    const size_t offset = (get_be16(image, kSerialAddressAt) - kMfiRomAddress) & 0xFFFF;
    if (offset < kHeaderBytes || offset + size > image.size() || size < 2)
        return {};
    const auto descriptor = image.subspan(offset, size);
    if (descriptor[0] != size || descriptor[1] != kStringDescriptor)
        return {};
    std::string serial;
    for (size_t at = 2; at + 1 < size; at += 2) {
        const uint8_t character = descriptor[at];
        if (character <= ' ' || character > '~' || character == '\\' || descriptor[at + 1] != 0)
            return {};
        serial += static_cast<char>(character);
    }
    return serial;
}

} // namespace sim
