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

/// What an address leads to lies behind the header.
std::optional<Bytes> part(Bytes image, size_t offset, size_t size)
{
    if (offset < kHeaderSize || offset > image.size() || size > image.size() - offset)
        return std::nullopt;
    return image.subspan(offset, size);
}

/// The serial-number descriptor without its head.
std::optional<Bytes> descriptor_text(Bytes image)
{
    const size_t size = word(image, kSerialLength);
    const auto descriptor = part(image, offset_of(image, kSerialAddr), size);
    if (!descriptor || size < kDescriptorHead)
        return std::nullopt;
    return descriptor->subspan(kDescriptorHead);
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
        const bool is_serial = word(*head, 2) == kSerialRecord;
        if (length == 0 || (is_serial && length < kRecordHead))
            return std::nullopt;
        if (is_serial)
            return part(image, offset + kRecordHead, length - kRecordHead);
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

    const auto utf16 = descriptor_text(mfi_image);
    if (!utf16)
        return "the MFi image has no serial-number descriptor";
    const auto record = record_text(mfi_image);
    if (!record)
        return "the MFi image has no serial-number record";

    if (!fits(*utf16, 2 * serial.size()) || !fits(*record, serial.size())) {
        return format("the serial number has %zu characters, but the MFi image is made for %zu",
                      serial.size(), std::min(utf16->size() / 2, record->size()));
    }
    return {};
}

bool holds_serial(Bytes mfi_image, const std::string& serial)
{
    const auto utf16 = descriptor_text(mfi_image);
    const auto record = record_text(mfi_image);
    if (!utf16 || !record || 2 * serial.size() > utf16->size() || serial.size() > record->size())
        return false;
    for (size_t i = 0; i < serial.size(); ++i) {
        const auto character = static_cast<uint8_t>(serial[i]);
        if ((*utf16)[2 * i] != character || (*utf16)[2 * i + 1] != 0 || (*record)[i] != character)
            return false;
    }
    return true;
}

} // namespace tool
