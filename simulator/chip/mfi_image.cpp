// SPDX-License-Identifier: Apache-2.0
#include "firmware_image.h"
#include "prng.h"

#include <algorithm>
#include <numeric>

namespace sim {
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
