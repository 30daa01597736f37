// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "events.h"
#include "files/descriptor.h"
#include "last_line.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace tool {

enum class Colour { kRed = 31, kGreen = 32, kYellow = 33 };

/**
 * Everything that the user sees: lines, and the progress of one phase at a time. On a terminal the
 * progress is a bar that is redrawn in place, otherwise a few plain lines. Thread-safe.
 *
 * Keeps its own copies of standard output and standard error, so that it goes on speaking while
 * they are captured.
 */
class Display {
public:
    Display();
    ~Display();
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    /// A line on standard output.
    void say(std::string_view line);
    /// The text in a colour where the terminal has colours and the user wants them.
    std::string coloured(const std::string& text, Colour colour) const;
    /// "[===>  ]": `full` of `width` cells are done.
    std::string bar(size_t full, size_t width) const;
    /// The same as say() for a remark that a quiet user does not want.
    void note(std::string_view line);
    /// From now on neither progress nor remarks.
    void be_quiet();
    /// A line on standard error.
    void warn(std::string_view line);

    /// From now on standard output carries JSON lines (events.h) in the place of text.
    void tell_events();
    bool tells_events() const { return events_; }
    /// One of them.
    void put_event(std::string_view json_line);
    /// Standard output is a terminal that can redraw lines.
    bool is_live() const { return live_; }
    /// Columns and rows of the terminal.
    std::pair<size_t, size_t> size() const;

    /// Bytes as they are, on standard output.
    void pass_on(std::span<const uint8_t> bytes);

    /// A phase begins; 0 bytes: nobody knows how long it takes.
    void begin(std::string phase, uint64_t total_bytes);
    void advance(uint64_t done_bytes);
    /// The phase is done. Without a phase: nothing.
    void end();
    /// The phase failed, or nobody cares any more: takes the bar away.
    void abandon();
    /// Time passes: redraws.
    void tick();

    /// What an end in the middle still puts on standard output (last_line.h).
    void set_last_line(last_line::Kind kind, std::string_view head);
    /// Why not everything has reached standard output; "" when it has. The work goes on without it.
    std::string output_complaint() const;

    /// Asks a yes-or-no question; false when nobody can answer.
    bool confirm(const std::string& question);
    /// Has one of `most` chosen that the text numbers from 1 on; 0 when nobody can answer, or does
    /// not want to.
    size_t choose(const std::string& text, size_t most);

private:
    using Clock = std::chrono::steady_clock;

    std::string ask(const std::string& question);
    void write_out(std::string_view text);
    void put_line(int fd, std::string_view line);
    void redraw(bool always);
    void erase_bar();
    std::string bar_line(size_t width) const;
    std::string wandering_bar(size_t width) const;
    std::string summary() const;
    void print_quarter();
    void put_progress(bool done);
    double elapsed_s() const;
    double rate_kib_per_s() const;
    unsigned percent() const;

    files::Descriptor out_;
    files::Descriptor err_;
    bool live_; ///< standard output is a terminal that can redraw a line
    bool colour_;

    mutable std::mutex mutex_;
    int output_error_ = 0; ///< errno of the first one
    bool events_ = false;
    bool quiet_ = false;
    bool active_ = false;
    bool bar_visible_ = false;
    std::string phase_;
    uint64_t total_bytes_ = 0;
    uint64_t done_bytes_ = 0;
    Clock::time_point begun_;
    Clock::time_point drawn_;
    unsigned quarters_said_ = 0;
};

/// A phase with its bar, of so many columns, share, rate and time that is left, as far as there is
/// room. Its total is known.
std::string bar_line(const Display& display, const Progress& progress, size_t width,
                     std::pair<size_t, size_t> bar_columns);
/// "1:05".
std::string clock_text(double seconds);

} // namespace tool
