// SPDX-License-Identifier: Apache-2.0
#include "mfi_image.h"

#include "text.h"

#include <nyxus/image.h>
#include <algorithm>
#include <optional>

namespace tool {

namespace {

using Bytes = std::span<const uint8_t>;

// Header of an MFi image: big-endian words.
constexpr size_t kHeaderSize = 0x20;
constexpr size_t kDescListEnd = 0x02;
constexpr size_t kDescListAddr = 0x04;
constexpr size_t kSerialLength = 0x0E;
constexpr size_t kSerialAddr = 0x10;

constexpr size_t kDescriptorHead = 2;
constexpr size_t kRecordHead = 4;
constexpr unsigned kSerialRecord = 3;

unsigned word(Bytes image, size_t offset)
{
    return static_cast<unsigned>(image[offset] << 8 | image[offset + 1]);
}

/// Offset in the image of something that the header names by its ROM address.
size_t offset_of(Bytes image, size_t field)
{
    return (word(image, field) - NYXUS_MFI_ROM_ADDR) & 0xFFFF;
}

std::optional<Bytes> part(Bytes image, size_t offset, size_t size)
{
    if (offset > image.size() || size > image.size() - offset)
        return std::nullopt;
    return image.subspan(offset, size);
}

/// Text of the serial-number record, found as the library finds it.
std::optional<Bytes> record_text(Bytes image)
{
    size_t offset = offset_of(image, kDescListAddr);
    const size_t end = word(image, kDescListEnd);
    do {
        const auto head = part(image, offset, kRecordHead);
        if (!head)
            return std::nullopt;
        const size_t length = word(*head, 0);
        if (word(*head, 2) == kSerialRecord && length >= kRecordHead)
            return part(image, offset + kRecordHead, length - kRecordHead);
        if (length == 0)
            return std::nullopt;
        offset += length;
    } while (offset < end);
    return std::nullopt;
}

/// A shorter text would leave the end of the old one behind, unless there was none.
bool fits(Bytes field, size_t size)
{
    return size <= field.size() && std::ranges::all_of(field.subspan(size), [](uint8_t byte) {
               return byte == 0x00 || byte == 0xFF;
           });
}

} // namespace

std::string refuse_serial(Bytes mfi_image, const std::string& serial)
{
    if (serial.empty() || !std::ranges::all_of(serial, [](char c) { return c > 0x20 && c < 0x7F; }))
        return "a serial number consists of printable ASCII characters without blanks";
    if (mfi_image.size() < kHeaderSize)
        return "the MFi image is too short to hold a header";

    const size_t descriptor_size = word(mfi_image, kSerialLength);
    const auto descriptor = part(mfi_image, offset_of(mfi_image, kSerialAddr), descriptor_size);
    if (!descriptor || descriptor_size < kDescriptorHead)
        return "the MFi image has no serial-number descriptor";
    const auto record = record_text(mfi_image);
    if (!record)
        return "the MFi image has no serial-number record";

    const Bytes utf16 = descriptor->subspan(kDescriptorHead);
    if (!fits(utf16, 2 * serial.size()) || !fits(*record, serial.size()))
        return format("the serial number has %zu characters, but the MFi image is made for %zu",
                      serial.size(), std::min(utf16.size() / 2, record->size()));
    return {};
}

} // namespace tool
