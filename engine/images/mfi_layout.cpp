// SPDX-License-Identifier: Apache-2.0
#include "mfi_layout.h"

#include <algorithm>

#include "text/format.h"

namespace nyxus::engine {

namespace {

// Header: big-endian words.
constexpr size_t kDescListEnd = 0x02;
constexpr size_t kDescListAddr = 0x04;
constexpr size_t kSerialLength = 0x0E;
constexpr size_t kSerialAddr = 0x10;

constexpr size_t kRecordHead = 4;
constexpr unsigned kSerialRecord = 3;

struct Record {
    MfiRange range; ///< with its head; it may end behind the image
    unsigned type;
};

unsigned word(Bytes image, size_t offset)
{
    return static_cast<unsigned>(image[offset] << 8 | image[offset + 1]);
}

/// Offset in the image of something that the header names by its ROM address.
size_t offset_of(Bytes image, size_t field)
{
    return (word(image, field) - NYXUS_MFI_ROM_ADDR) & 0xFFFF;
}

bool is_inside(Bytes image, MfiRange part)
{
    return part.offset >= kMfiHeaderSize && part.offset <= image.size() &&
           part.size <= image.size() - part.offset;
}

/// As far as one leads to the next.
std::vector<Record> records_of(Bytes image)
{
    std::vector<Record> records;
    if (image.size() < kMfiHeaderSize)
        return records;
    size_t offset = offset_of(image, kDescListAddr);
    const size_t end = word(image, kDescListEnd);
    do {
        if (!is_inside(image, {offset, kRecordHead}))
            break;
        const size_t length = word(image, offset);
        if (length == 0)
            break;
        records.push_back({{offset, length}, word(image, offset + 2)});
        offset += length;
    } while (offset < end);
    return records;
}

/// "" when it is no text.
std::string text_of(Bytes descriptor)
{
    std::string text;
    for (size_t i = kDescriptorHead; i + 1 < descriptor.size(); i += 2) {
        const bool is_ascii =
            descriptor[i] > 0x20 && descriptor[i] < 0x7F && descriptor[i + 1] == 0;
        if (!is_ascii)
            return {};
        text += static_cast<char>(descriptor[i]);
    }
    return text;
}

uint32_t size_without_erased_rest(Bytes bytes)
{
    size_t size = bytes.size();
    while (size > 0 && bytes[size - 1] == 0xFF)
        --size;
    return static_cast<uint32_t>(size);
}

} // namespace

std::optional<MfiRange> serial_descriptor(Bytes image)
{
    if (image.size() < kMfiHeaderSize)
        return std::nullopt;
    const MfiRange range = {offset_of(image, kSerialAddr), word(image, kSerialLength)};
    return is_inside(image, range) && range.size >= kDescriptorHead ? std::optional(range)
                                                                    : std::nullopt;
}

std::optional<MfiRange> serial_record(Bytes image)
{
    const std::vector<Record> records = records_of(image);
    const auto found = std::ranges::find(records, kSerialRecord, &Record::type);
    if (found == records.end() || found->range.size < kRecordHead)
        return std::nullopt;
    const MfiRange text = {found->range.offset + kRecordHead, found->range.size - kRecordHead};
    return is_inside(image, text) ? std::optional(text) : std::nullopt;
}

std::optional<MfiFacts> find_mfi(Bytes image)
{
    constexpr uint8_t kStringDescriptor = 3;
    const auto range = serial_descriptor(image);
    if (!range || image[range->offset] != range->size ||
        image[range->offset + 1] != kStringDescriptor)
        return std::nullopt;
    MfiFacts facts;
    facts.bytes = size_without_erased_rest(image);
    facts.serial = text_of(image.subspan(range->offset, range->size));
    const auto add = [&facts](std::string name, MfiRange part) {
        facts.parts.push_back({std::move(name),
                               static_cast<uint32_t>(NYXUS_MFI_ROM_ADDR + part.offset),
                               static_cast<uint32_t>(part.size)});
    };
    add("header", {0, kMfiHeaderSize});
    add("serial-number descriptor", *range);
    for (const Record& record : records_of(image)) {
        if (record.range.size >= kRecordHead && is_inside(image, record.range)) {
            add(record.type == kSerialRecord ? "serial-number record"
                                             : text::format("record of type %u", record.type),
                record.range);
        }
    }
    return facts;
}

Bytes mfi_area(Bytes rom)
{
    return rom.subspan(NYXUS_MFI_ROM_ADDR, NYXUS_MFI_BIN_CAPACITY);
}

} // namespace nyxus::engine
