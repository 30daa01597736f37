// SPDX-License-Identifier: Apache-2.0
#include "osd.h"

#include "osd_font.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace sim {
namespace {

enum Command : uint8_t {
    kEnable = 0x01,
    kReset = 0x02,
    kDatetime = 0x04,
    kString = 0x08,
    kWindow = 0x10,
    kColour = 0x20,
    kHeader = 0x40,
    kGet = 0x80, // added to one of the above
};

constexpr size_t kTextColour = 0;
constexpr size_t kBackgroundColour = 1;
constexpr size_t kWindowColour = 2;
constexpr std::array<uint8_t, 9> kDefaultColours = {235, 128, 128, 16, 128, 128, 41, 240, 110};

constexpr std::array<uint8_t, 8> kDefaultDatetime = {0, 1, 1, 0, 0, 0, 1, 1};

constexpr uint32_t kTextColumn = 1;
constexpr uint32_t kHeaderRow = 1;
constexpr uint32_t kDotPixels = 2;

template <size_t N>
void copy_into(std::array<uint8_t, N>& record, std::span<const uint8_t> data)
{
    std::copy_n(data.begin(), std::min(N, data.size()), record.begin());
}

void draw_glyph(Canvas& canvas, uint32_t x, uint32_t y, uint8_t character, Colour colour)
{
    const auto& rows = glyph(character);
    for (uint32_t row = 0; row < kGlyphRows; ++row) {
        for (uint32_t column = 0; column < kGlyphColumns; ++column) {
            if ((rows[row] >> (kGlyphColumns - 1 - column) & 1) != 0) {
                canvas.fill(
                    {x + (column + 1) * kDotPixels, y + row * kDotPixels, kDotPixels, kDotPixels},
                    colour);
            }
        }
    }
}

} // namespace

Osd::Osd(Clock& clock, std::string_view header) : clock_(clock), header_(header)
{
    power_up();
}

void Osd::power_up()
{
    state_ = {};
    state_.datetime = kDefaultDatetime;
    state_.datetime_set_us = clock_.now_us();
    state_.colours = kDefaultColours;
}

void Osd::command(std::span<uint8_t, kCommandBytes> frame)
{
    const uint8_t code = frame[0];
    if ((code & kGet) == 0)
        return set(code, frame.subspan(1));
    const uint8_t index = frame[1];
    std::ranges::fill(frame, uint8_t{0});
    get(code & static_cast<uint8_t>(~kGet), index, frame);
}

void Osd::set(uint8_t code, std::span<const uint8_t> data)
{
    switch (code) {
        case kEnable:
            state_.enabled = data[0];
            break;
        case kReset:
            power_up();
            break;
        case kDatetime:
            copy_into(state_.datetime, data);
            state_.datetime_set_us = clock_.now_us();
            break;
        case kString:
            if (data[0] < kStringCount)
                copy_into(state_.strings[data[0]], data.subspan(1));
            break;
        case kWindow:
            if (data[0] < kWindowCount) {
                state_.latest_window = data[0];
                copy_into(state_.windows[data[0]], data);
            }
            break;
        case kColour:
            copy_into(state_.colours, data);
            break;
        case kHeader:
            state_.header_shown = true;
            break;
        default: // the firmware ignores what it does not know
            break;
    }
}

void Osd::get(uint8_t code, uint8_t index, std::span<uint8_t> answer) const
{
    switch (code) {
        case kEnable:
            answer[0] = state_.enabled;
            break;
        case kDatetime:
            std::ranges::copy(now(), answer.begin());
            break;
        case kString:
            if (index < kStringCount)
                std::ranges::copy(state_.strings[index], answer.begin());
            break;
        case kWindow:
            std::ranges::copy(state_.windows[state_.latest_window], answer.begin());
            break;
        case kColour:
            std::ranges::copy(state_.colours, answer.begin());
            break;
        default:
            break;
    }
}

/// The date and time that were set, plus what has passed since.
Osd::Datetime Osd::now() const
{
    using namespace std::chrono;
    Datetime datetime = state_.datetime;
    const auto day =
        year_month_day(year(2000 + datetime[0]), month(datetime[1]), std::chrono::day(datetime[2]));
    if (!day.ok() || datetime[3] > 23 || datetime[4] > 59 || datetime[5] > 59)
        return datetime;

    const seconds passed((clock_.now_us() - state_.datetime_set_us) / kUsPerSecond);
    const sys_seconds time =
        sys_days(day) + hours(datetime[3]) + minutes(datetime[4]) + seconds(datetime[5]) + passed;
    const auto midnight = floor<days>(time);
    const year_month_day today(midnight);
    const hh_mm_ss clock(time - midnight);
    datetime[0] = static_cast<uint8_t>(static_cast<int>(today.year()) - 2000);
    datetime[1] = static_cast<uint8_t>(static_cast<unsigned>(today.month()));
    datetime[2] = static_cast<uint8_t>(static_cast<unsigned>(today.day()));
    datetime[3] = static_cast<uint8_t>(clock.hours().count());
    datetime[4] = static_cast<uint8_t>(clock.minutes().count());
    datetime[5] = static_cast<uint8_t>(clock.seconds().count());
    return datetime;
}

void Osd::draw(Canvas& canvas, uint8_t control) const
{
    const bool transparent = (control & kTransparent) != 0;
    if (state_.enabled != 0) {
        draw_windows(canvas);
        for (uint32_t line = 0; line < kStringCount; ++line) {
            draw_text(canvas, kTextColumn, kFirstStringRow + line, state_.strings[line],
                      transparent);
        }
        if (state_.header_shown) {
            const auto title = std::span(header_.data(), header_.size());
            Text text{};
            std::ranges::copy(title.first(std::min(title.size(), text.size())), text.begin());
            draw_text(canvas, kTextColumn, kHeaderRow, text, transparent);
        }
    }
    if ((control & kShowDatetime) != 0)
        draw_datetime(canvas, transparent);
}

void Osd::draw_windows(Canvas& canvas) const
{
    for (const Record& window : state_.windows) {
        if (window[5] != 0) {
            canvas.fill({window[1] * kCellPixels, window[2] * kCellPixels, window[3] * kCellPixels,
                         window[4] * kCellPixels},
                        colour(kWindowColour));
        }
    }
}

void Osd::draw_datetime(Canvas& canvas, bool transparent) const
{
    const Datetime time = now();
    std::array<char, 32> text{};
    const int length = std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d",
                                     2000 + time[0], time[1], time[2], time[3], time[4], time[5]);
    std::array<uint8_t, 32> characters{};
    std::copy_n(text.begin(), length, characters.begin());
    draw_text(canvas, time[6], time[7], std::span(characters).first(static_cast<size_t>(length)),
              transparent);
}

void Osd::draw_text(Canvas& canvas, uint32_t column, uint32_t row, std::span<const uint8_t> text,
                    bool transparent) const
{
    const uint32_t y = row * kCellPixels;
    for (uint32_t x = column * kCellPixels; const uint8_t character : text) {
        const bool blank = character == 0;
        if (!blank && !transparent)
            canvas.fill({x, y, kCellPixels, kCellPixels}, colour(kBackgroundColour));
        if (!blank)
            draw_glyph(canvas, x, y, character, colour(kTextColour));
        x += kCellPixels;
    }
}

Colour Osd::colour(size_t which) const
{
    const uint8_t* parts = &state_.colours[which * 3];
    return {parts[0], parts[1], parts[2]};
}

} // namespace sim
