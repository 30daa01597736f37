// SPDX-License-Identifier: Apache-2.0
#include "canvas.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

namespace sim {
namespace {

constexpr uint32_t kPairBytes = 4;
constexpr double kBlack = 16;
constexpr double kWhite = 235;
constexpr double kMostChroma = 240;
constexpr double kGrey = 128;

uint8_t level(double value, double most)
{
    return static_cast<uint8_t>(std::lround(std::clamp(value, kBlack, most)));
}

} // namespace

Colour PictureSettings::shown(const Colour& seen) const
{
    constexpr double kMostBrightness = 100;
    constexpr double kMostWarmth = 40;
    constexpr double kMostExposure = 8;
    if (is_covered)
        return {static_cast<uint8_t>(kBlack), static_cast<uint8_t>(kGrey),
                static_cast<uint8_t>(kGrey)};
    const double range = kWhite - kBlack;
    const double light = std::clamp((seen.luma - kBlack) / range, 0.0, 1.0);
    const double exposed = std::min(light * std::min(exposure, kMostExposure), 1.0);
    const double sensed = gamma == 1 ? exposed : std::pow(exposed, 1 / gamma);
    const double contrasted = kGrey + (kBlack + range * sensed - kGrey) * (1 + contrast);
    const double luma = kBlack + (contrasted - kBlack) * (1 + gain) + kMostBrightness * brightness;
    const double blue = (seen.blue_difference - kGrey) * (1 + saturation);
    const double red = (seen.red_difference - kGrey) * (1 + saturation);
    const double turn = hue * std::numbers::pi;
    const double warm = kMostWarmth * warmth;
    return {level(luma, kWhite),
            level(kGrey + blue * std::cos(turn) - red * std::sin(turn) - warm, kMostChroma),
            level(kGrey + red * std::cos(turn) + blue * std::sin(turn) + warm, kMostChroma)};
}

Canvas::Canvas(uint32_t width, uint32_t height, std::span<uint8_t> yuyv, Orientation orientation,
               const PictureSettings& settings)
    : width_(width & ~1U),
      height_(height),
      yuyv_(yuyv),
      orientation_(orientation),
      settings_(settings),
      is_adjusted_(settings != PictureSettings{})
{
    const bool fits = width % 2 == 0 && uint64_t{width} * height * 2 <= yuyv.size();
    if (!fits)
        width_ = height_ = 0;
}

// What leaves the picture on one side or both is cut off.
Area Canvas::zoomed(const Area& area) const
{
    const auto move = [zoom = settings_.zoom](uint32_t at, uint32_t extent, double turn) {
        const double middle = extent / 2.0;
        const double aim = middle + turn * middle * (1 - 1 / zoom);
        return static_cast<uint32_t>(std::clamp<double>(middle + (at - aim) * zoom, 0, extent));
    };
    const double pan = settings_.pan;
    const double tilt = -settings_.tilt;
    const uint32_t x = move(area.x, width_, pan);
    const uint32_t y = move(area.y, height_, tilt);
    return {x, y, move(area.x + area.width, width_, pan) - x,
            move(area.y + area.height, height_, tilt) - y};
}

void Canvas::fill(Area area, Colour colour)
{
    if (is_adjusted_) {
        area = zoomed(area);
        colour = settings_.shown(colour);
    }
    if (area.x >= width_ || area.y >= height_ || area.height == 0 || area.width == 0)
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
