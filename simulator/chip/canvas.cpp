// SPDX-License-Identifier: Apache-2.0
#include "canvas.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

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
    if (is_covered) {
        return {static_cast<uint8_t>(kBlack), static_cast<uint8_t>(kGrey),
                static_cast<uint8_t>(kGrey)};
    }
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

namespace {

/// The same as PictureSettings::shown(), for many pixels.
class ColourTable {
public:
    explicit ColourTable(const PictureSettings& settings)
    {
        for (unsigned luma = 0; luma < luma_.size(); ++luma)
            luma_[luma] = settings.shown({static_cast<uint8_t>(luma), 128, 128}).luma;
        const double turn = settings.hue * std::numbers::pi;
        const double scale = settings.is_covered ? 0 : kOne * (1 + settings.saturation);
        along_ = static_cast<int>(std::lround(scale * std::cos(turn)));
        across_ = static_cast<int>(std::lround(scale * std::sin(turn)));
        const Colour grey = settings.shown({128, 128, 128});
        blue_ = grey.blue_difference * kOne + kOne / 2;
        red_ = grey.red_difference * kOne + kOne / 2;
    }

    uint8_t luma(uint8_t seen) const { return luma_[seen]; }
    uint8_t blue(int blue, int red) const
    {
        return chroma(blue_ + along_ * (blue - kMiddle) - across_ * (red - kMiddle));
    }
    uint8_t red(int blue, int red) const
    {
        return chroma(red_ + along_ * (red - kMiddle) + across_ * (blue - kMiddle));
    }

private:
    static constexpr int kOne = 1 << 16;
    static constexpr int kMiddle = 128;

    static uint8_t chroma(int value)
    {
        return static_cast<uint8_t>(
            std::clamp(value / kOne, static_cast<int>(kBlack), static_cast<int>(kMostChroma)));
    }

    std::array<uint8_t, 256> luma_{};
    int along_;
    int across_;
    int blue_;
    int red_;
};

/// From where in a row, or column, of `seen` pixels each of `count` is taken.
std::vector<uint32_t> places(uint32_t count, uint32_t seen, double scale, double aim, bool turned)
{
    std::vector<uint32_t> from(count);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t at = turned ? count - 1 - i : i;
        from[i] = static_cast<uint32_t>(
            std::clamp(aim + (at + 0.5 - count / 2.0) * scale, 0.0, seen - 1.0));
    }
    return from;
}

} // namespace

void Canvas::show(const View& seen)
{
    if (width_ == 0 || height_ == 0 || seen.width < 2 || seen.height == 0 ||
        uint64_t{seen.width} * seen.height * 2 > seen.yuyv.size())
        return;
    if (!is_adjusted_ && orientation_ == Orientation{} && seen.width == width_ &&
        seen.height == height_) {
        std::ranges::copy(seen.yuyv.first(size_t{width_} * height_ * 2), yuyv_.begin());
        return;
    }
    const double whole = std::min(static_cast<double>(seen.width) / width_,
                                  static_cast<double>(seen.height) / height_);
    const double scale = whole / settings_.zoom;
    const auto aim = [&](uint32_t extent, uint32_t shown, double turn) {
        return extent / 2.0 + turn * shown / 2.0 * (whole - scale);
    };
    const auto columns = places(width_, seen.width, scale, aim(seen.width, width_, settings_.pan),
                                orientation_.mirrored);
    const auto rows = places(height_, seen.height, scale,
                             aim(seen.height, height_, -settings_.tilt), orientation_.flipped);
    const ColourTable colours(settings_);
    const size_t row_bytes = size_t{width_} * 2;
    for (uint32_t y = 0; y < height_; ++y) {
        uint8_t* const row = yuyv_.data() + y * row_bytes;
        if (y > 0 && rows[y] == rows[y - 1]) {
            std::memcpy(row, row - row_bytes, row_bytes);
            continue;
        }
        const uint8_t* const from = seen.yuyv.data() + size_t{rows[y]} * seen.width * 2;
        for (uint32_t x = 0; x < width_; x += 2) {
            const uint8_t* const pair = from + columns[x] / 2 * kPairBytes;
            uint8_t* const out = row + size_t{x} * 2;
            out[0] = colours.luma(from[columns[x] * 2]);
            out[1] = colours.blue(pair[1], pair[3]);
            out[2] = colours.luma(from[columns[x + 1] * 2]);
            out[3] = colours.red(pair[1], pair[3]);
        }
    }
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
