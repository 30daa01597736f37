// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "canvas.h"
#include "clock.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace sim {

/// The firmware's on-screen display. It is laid over the picture after the sensor has turned it, so
/// its text is always upright. Positions count in cells of 16x16 pixels from the top left.
///
///   date-time  0 year - 2000, 1 month, 2 day, 3 hour, 4 minute, 5 second, 6 column, 7 row;
///              the clock runs on from there, unless that is no date
///   string     16 characters from column 1 of row 2 + index (0 to 7); NUL shows nothing
///   window     0 index (0 to 3), 1 column, 2 row, 3 width, 4 height, 5 shown; 6 to 8 unused
///   colour     three times Y, Cb, Cr: text, its background, windows
///
/// The enable flag shows header, strings and windows; the stamp has a register bit of its own.
class Osd {
public:
    static constexpr size_t kCommandBytes = 18;
    static constexpr uint8_t kStringCount = 8;
    static constexpr uint8_t kWindowCount = 4;
    static constexpr uint32_t kCellPixels = 16;
    static constexpr uint32_t kFirstStringRow = 2;

    /// `header` is the title that the header command shows in row 1.
    Osd(Clock& clock, std::string_view header);

    void power_up();
    /// Takes a command. A request for data is replaced by its answer, which is fetched next.
    void command(std::span<uint8_t, kCommandBytes> frame);
    bool is_enabled() const { return state_.enabled != 0; }
    std::span<const uint8_t> string(size_t index) const { return state_.strings.at(index); }
    /// `control` is the OSD control register.
    void draw(Canvas& canvas, uint8_t control) const;

    static constexpr uint16_t kControlReg = 0x0544;
    static constexpr uint8_t kShowDatetime = 0x02;
    static constexpr uint8_t kTransparent = 0x10;

private:
    using Datetime = std::array<uint8_t, 8>;
    using Text = std::array<uint8_t, 16>;
    using Record = std::array<uint8_t, 9>;

    struct State {
        uint8_t enabled = 0;
        bool header_shown = false;
        Datetime datetime{};
        uint64_t datetime_set_us = 0;
        std::array<Text, kStringCount> strings{};
        std::array<Record, kWindowCount> windows{};
        uint8_t latest_window = 0;
        Record colours{};
    };

    void set(uint8_t code, std::span<const uint8_t> data);
    void get(uint8_t code, uint8_t index, std::span<uint8_t> answer) const;
    Datetime now() const;
    void draw_windows(Canvas& canvas) const;
    void draw_datetime(Canvas& canvas, bool transparent) const;
    void draw_text(Canvas& canvas, uint32_t column, uint32_t row, std::span<const uint8_t> text,
                   bool transparent) const;
    Colour colour(size_t which) const;

    Clock& clock_;
    std::string_view header_;
    State state_;
};

} // namespace sim
