// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace tool {

/// Pixels of three bytes, row after row.
struct Picture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> rgb;
};

/// `yuyv` has two bytes a pixel.
Picture picture_of_yuyv(uint32_t width, uint32_t height, std::span<const uint8_t> yuyv);
/// A Failure for a file that is broken.
Picture picture_of_jpeg(std::span<const uint8_t> file);
std::vector<uint8_t> png_of(const Picture& picture);
/// `quality` is 1 to 100.
std::vector<uint8_t> jpeg_of(const Picture& picture, uint32_t quality = 95);

} // namespace tool
