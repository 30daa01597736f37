// SPDX-License-Identifier: Apache-2.0
#include "picture.h"

namespace sim {
namespace {

constexpr uint32_t kCellPixels = 4;
constexpr uint32_t kCells = 32;
constexpr Colour kBright = {235, 128, 128};
constexpr Colour kDark = {16, 128, 128};
constexpr uint8_t kSurelyBright = 192;
constexpr uint8_t kSurelyDark = 64;

// clang-format off
constexpr Colour kBars[] = {
//   Y    Cb   Cr
    {235, 128, 128}, // white
    {210,  16, 146}, // yellow
    {170, 166,  16}, // cyan
    {145,  54,  34}, // green
    {106, 202, 222}, // magenta
    { 81,  90, 240}, // red
    { 41, 240, 110}, // blue
    { 16, 128, 128}, // black
};
// clang-format on

constexpr uint32_t kBarCount = std::size(kBars);

void draw_letter_f(Canvas& canvas, uint32_t x, uint32_t y, uint32_t stroke)
{
    canvas.fill({x, y, stroke, 5 * stroke}, kDark);
    canvas.fill({x, y, 4 * stroke, stroke}, kDark);
    canvas.fill({x, y + 2 * stroke, 3 * stroke, stroke}, kDark);
}

} // namespace

void draw_test_pattern(Canvas& canvas)
{
    const uint32_t bar_width = canvas.width() / kBarCount;
    const uint32_t bars_height = canvas.height() / 3 * 2;
    const uint32_t ramp_height = canvas.height() - bars_height;
    for (uint32_t bar = 0; bar < kBarCount; ++bar) {
        const uint32_t x = bar * bar_width;
        const auto grey = static_cast<uint8_t>(96 + 16 * bar);
        canvas.fill({x, 0, canvas.width() - x, bars_height}, kBars[bar]);
        canvas.fill({x, bars_height, canvas.width() - x, ramp_height}, {grey, 128, 128});
    }
    const uint32_t stroke = ramp_height / 8 & ~1U;
    draw_letter_f(canvas, 2 * stroke, bars_height + stroke, stroke);
}

void draw_frame_number(Canvas& canvas, uint32_t frame_number)
{
    for (uint32_t cell = 0; cell < kCells; ++cell) {
        const bool one = (frame_number >> (kCells - 1 - cell) & 1) != 0;
        canvas.fill({cell * kCellPixels, 0, kCellPixels, kCellPixels}, one ? kBright : kDark);
    }
}

std::optional<uint32_t> read_frame_number(uint32_t width, uint32_t height,
                                          std::span<const uint8_t> yuyv, bool flipped,
                                          bool mirrored)
{
    if (width < kCells * kCellPixels || height < kCellPixels ||
        yuyv.size() < uint64_t{width} * height * 2)
        return std::nullopt;

    const uint32_t middle = kCellPixels / 2;
    const uint32_t row = flipped ? height - 1 - middle : middle;
    uint32_t number = 0;
    for (uint32_t cell = 0; cell < kCells; ++cell) {
        const uint32_t x = cell * kCellPixels + middle;
        const uint32_t column = mirrored ? width - 1 - x : x;
        const uint8_t luma = yuyv[(size_t{row} * width + column) * 2];
        if (luma > kSurelyDark && luma < kSurelyBright)
            return std::nullopt;
        number = number << 1 | (luma >= kSurelyBright ? 1 : 0);
    }
    return number;
}

} // namespace sim
