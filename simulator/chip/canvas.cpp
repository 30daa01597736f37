// SPDX-License-Identifier: Apache-2.0
#include "canvas.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace sim {
namespace {

constexpr uint32_t kPairBytes = 4;

} // namespace

Canvas::Canvas(uint32_t width, uint32_t height, std::span<uint8_t> yuyv, Orientation orientation)
    : width_(width & ~1U), height_(height), yuyv_(yuyv), orientation_(orientation)
{
    const bool fits = width % 2 == 0 && uint64_t{width} * height * 2 <= yuyv.size();
    if (!fits)
        width_ = height_ = 0;
}

void Canvas::fill(Area area, Colour colour)
{
    if (area.x >= width_ || area.y >= height_ || area.height == 0)
        return;
    const uint32_t columns = std::min(area.width + area.x % 2, width_ - (area.x & ~1U));
    const uint32_t rows = std::min(area.height, height_ - area.y);
    const uint32_t pairs = columns / 2 + columns % 2;
    const uint32_t left = area.x / 2;
    const uint32_t first_pair = orientation_.mirrored ? width_ / 2 - left - pairs : left;
    const uint32_t first_row = orientation_.flipped ? height_ - area.y - rows : area.y;

    const std::array<uint8_t, kPairBytes> pair = {colour.luma, colour.blue_difference, colour.luma,
                                                  colour.red_difference};
    const size_t row_bytes = size_t{width_} / 2 * kPairBytes;
    uint8_t* const first = yuyv_.data() + first_row * row_bytes + size_t{first_pair} * kPairBytes;
    for (uint32_t i = 0; i < pairs; ++i)
        std::memcpy(first + size_t{i} * kPairBytes, pair.data(), kPairBytes);
    for (uint32_t row = 1; row < rows; ++row)
        std::memcpy(first + row * row_bytes, first, size_t{pairs} * kPairBytes);
}

} // namespace sim
