// SPDX-License-Identifier: Apache-2.0
#include "kinds.h"

#include <algorithm>
#include <string_view>

#include "text/format.h"

namespace nyxus::engine {

using text::format;

namespace {

/// Behind an image the ROM is erased.
uint8_t byte_at(Bytes image, size_t offset)
{
    return offset < image.size() ? image[offset] : 0xFF;
}

uint32_t number_at(Bytes image, size_t offset, unsigned bytes)
{
    uint32_t number = 0;
    for (unsigned i = 0; i < bytes; ++i)
        number |= uint32_t{byte_at(image, offset + i)} << (8 * i);
    return number;
}

/// FNV-1a.
uint32_t checksum_of(Bytes image, size_t begin, size_t end)
{
    uint32_t sum = 0x811C9DC5;
    for (size_t i = begin; i < end; ++i)
        sum = (sum ^ byte_at(image, i)) * 0x01000193;
    return sum;
}

/// The kind of the simulated cameras: docs/file-formats.md.
ImageKind check_nxfw(Bytes image)
{
    constexpr uint32_t kHeader = Firmware::kHeaderBytes;
    constexpr uint32_t kSmallestBody = 0x40;
    ImageKind kind;
    if (checksum_of(image, 0, 0x3C) != number_at(image, 0x3C, 4)) {
        kind.problem = "damaged: the checksum of its header is wrong";
        return kind;
    }
    const uint32_t body = number_at(image, 0x04, 4);
    if (body < kSmallestBody || body > NYXUS_FW_BIN_CAPACITY - kHeader) {
        kind.problem = format("damaged: its header tells of a body of %u bytes", body);
        return kind;
    }
    kind.bytes = kHeader + body;
    if (checksum_of(image, kHeader, kind.bytes) == number_at(image, 0x08, 4)) {
        kind.version = format("0x%04X", number_at(image, 0x60, 2));
    } else if (image.size() < kind.bytes) {
        kind.problem = format("truncated: it has %zu of %u bytes", image.size(), kind.bytes);
    } else {
        kind.problem = "damaged: the checksum of its body is wrong";
    }
    return kind;
}

struct Row {
    std::string_view magic; ///< with which the image begins
    const char* name;
    ImageKind (*check)(Bytes image); ///< fills in the rest
};

// clang-format off
constexpr Row kKinds[] = {
//   magic    name    check
    {"NXFW",  "NXFW", check_nxfw},
};
// clang-format on

} // namespace

std::optional<ImageKind> kind_of(Bytes image)
{
    for (const Row& row : kKinds) {
        if (!std::ranges::equal(image.subspan(0, row.magic.size()), row.magic))
            continue;
        ImageKind kind = row.check(image);
        kind.name = row.name;
        return kind;
    }
    return std::nullopt;
}

} // namespace nyxus::engine
