// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace sim {

/// A picture in YUYV, black 16 and white 235.
struct YuyvPicture {
    uint32_t width = 0; ///< even
    uint32_t height = 0;
    std::vector<uint8_t> yuyv;
};

/// Whether a JPEG has the levels of its YUYV, or black and white where JPEG has them.
enum class Levels : uint8_t { kKept, kFull };

/// One complete JPEG file of a picture in YUYV, which has width * height * 2 bytes.
std::vector<uint8_t> encode_jpeg(uint32_t width, uint32_t height, std::span<const uint8_t> yuyv,
                                 Levels levels = Levels::kKept);

/// Nothing for a file that is broken, larger than 4096 pixels to a side, or neither in YCbCr nor
/// grey. An odd width loses its last column.
std::optional<YuyvPicture> decode_jpeg(std::span<const uint8_t> file);

} // namespace sim
