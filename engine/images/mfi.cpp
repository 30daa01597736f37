// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <nyxus/engine/images.hpp>
#include <span>

#include "image_file.h"
#include "text/format.h"

namespace nyxus::engine {

namespace {

using Field = std::span<uint8_t>;

// Header of an MFi image: big-endian words.
constexpr size_t kHeaderSize = 0x20;
constexpr size_t kDescListEnd = 0x02;
constexpr size_t kDescListAddr = 0x04;
constexpr size_t kSerialLength = 0x0E;
constexpr size_t kSerialAddr = 0x10;

constexpr size_t kDescriptorHead = 2;
constexpr size_t kRecordHead = 4;
constexpr unsigned kSerialRecord = 3;

unsigned word(Field image, size_t offset)
{
    return static_cast<unsigned>(image[offset] << 8 | image[offset + 1]);
}

/// Offset in the image of something that the header names by its ROM address.
size_t offset_of(Field image, size_t field)
{
    return (word(image, field) - NYXUS_MFI_ROM_ADDR) & 0xFFFF;
}

/// What an address leads to lies behind the header.
std::optional<Field> part(Field image, size_t offset, size_t size)
{
    if (offset < kHeaderSize || offset > image.size() || size > image.size() - offset)
        return std::nullopt;
    return image.subspan(offset, size);
}

/// The serial-number descriptor without its head.
std::optional<Field> descriptor_text(Field image)
{
    const size_t size = word(image, kSerialLength);
    const auto descriptor = part(image, offset_of(image, kSerialAddr), size);
    if (!descriptor || size < kDescriptorHead)
        return std::nullopt;
    return descriptor->subspan(kDescriptorHead);
}

/// Text of the serial-number record, found as the library finds it.
std::optional<Field> record_text(Field image)
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
bool fits(Field field, size_t size)
{
    return size <= field.size() && std::ranges::all_of(field.subspan(size), [](uint8_t byte) {
               return byte == 0x00 || byte == 0xFF;
           });
}

std::vector<uint8_t> utf16(const std::string& text)
{
    std::vector<uint8_t> bytes;
    for (const char c : text)
        bytes.insert(bytes.end(), {static_cast<uint8_t>(c), 0});
    return bytes;
}

/// Why a serial number cannot be written into an image; "" when it has been.
std::string write_serial(Field image, const std::string& serial)
{
    if (serial.empty() || !std::ranges::all_of(serial, [](char c) { return c > 0x20 && c < 0x7F; }))
        return "a serial number consists of printable ASCII characters without blanks";
    if (image.size() < kHeaderSize)
        return "the MFi image is too short to hold a header";
    const auto descriptor = descriptor_text(image);
    if (!descriptor)
        return "the MFi image has no serial-number descriptor";
    const auto record = record_text(image);
    if (!record)
        return "the MFi image has no serial-number record";
    const std::vector<uint8_t> wide = utf16(serial);
    if (!fits(*descriptor, wide.size()) || !fits(*record, serial.size())) {
        return text::format(
            "the serial number has %zu characters, but the MFi image is made for "
            "%zu",
            serial.size(), std::min(descriptor->size() / 2, record->size()));
    }
    std::ranges::copy(wide, descriptor->begin());
    std::ranges::copy(serial, record->begin());
    // The parts may overlap each other, and the records that lead to the second one.
    const auto found = record_text(image);
    if (!std::ranges::equal(wide, descriptor->first(wide.size())) || !found ||
        found->data() != record->data() || found->size() != record->size()) {
        return "the parts of the MFi image overlap, so that it cannot hold the serial number";
    }
    return {};
}

} // namespace

Result<Mfi> Mfi::load(const std::string& path)
{
    auto bytes = read_image_file(path, NYXUS_MFI_BIN_CAPACITY, "an MFi image");
    return bytes ? Result<Mfi>(Mfi(*std::move(bytes))) : bytes.status();
}

Result<Mfi> Mfi::from(std::vector<uint8_t> bytes, const std::string& name)
{
    const Status possible =
        check_image_size(name, bytes.size(), NYXUS_MFI_BIN_CAPACITY, "an MFi image");
    return possible ? Result<Mfi>(Mfi(std::move(bytes))) : possible;
}

Status Mfi::set_serial(const std::string& serial)
{
    std::vector<uint8_t> changed = bytes_; // one that is refused stays as it is
    const std::string reason = write_serial(changed, serial);
    if (!reason.empty())
        return {Reason::kWrongImage, reason + "; nothing was written"};
    bytes_ = std::move(changed);
    serial_ = serial;
    return {};
}

} // namespace nyxus::engine
