// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <nyxus/engine/images.hpp>
#include <span>

#include "image_file.h"
#include "mfi_layout.h"
#include "text/format.h"
#include "units/digest.h"

namespace nyxus::engine {

namespace {

using Field = std::span<uint8_t>;

Field part(Field image, MfiRange range)
{
    return image.subspan(range.offset, range.size);
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
    if (image.size() < kMfiHeaderSize)
        return "the MFi image is too short to hold a header";
    const auto descriptor_range = serial_descriptor(image);
    if (!descriptor_range)
        return "the MFi image has no serial-number descriptor";
    const auto record_range = serial_record(image);
    if (!record_range)
        return "the MFi image has no serial-number record";
    const Field descriptor = part(image, *descriptor_range).subspan(kDescriptorHead);
    const Field record = part(image, *record_range);
    const std::vector<uint8_t> wide = utf16(serial);
    if (!fits(descriptor, wide.size()) || !fits(record, serial.size())) {
        return text::format(
            "the serial number has %zu characters, but the MFi image is made for "
            "%zu",
            serial.size(), std::min(descriptor.size() / 2, record.size()));
    }
    std::ranges::copy(wide, descriptor.begin());
    std::ranges::copy(serial, record.begin());
    // The parts may overlap each other, and the records that lead to the second one.
    const auto found = serial_record(image);
    if (!std::ranges::equal(wide, descriptor.first(wide.size())) || !found ||
        found->offset != record_range->offset || found->size != record_range->size) {
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

Mfi::Mfi(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)), digest_(sha256(bytes_)) {}

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
