// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"
#include "terminal/events.h"
#include "terminal/failure.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <span>
#include <string_view>

namespace tool {

enum class Colour { kNone = 0, kRed = 31, kGreen = 32, kYellow = 33 };

/// A line of what is redrawn in place: how far a phase has come, or a text.
struct TableRow {
    std::string label = {};
    Progress progress = {}; ///< without a phase: the text
    std::string text = {};
    Colour colour = Colour::kNone; ///< of the text
};

/**
 * Everything that the user sees: lines, and progress. On a terminal that is rows below all lines,
 * which are redrawn in place; otherwise a few plain lines, or JSON. Thread-safe.
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
    /// The same for a remark that a quiet user does not want.
    void note(std::string_view line);
    /// A line on standard error.
    void warn(std::string_view line);
    /// The text in a colour where the terminal has colours and the user wants them.
    std::string coloured(const std::string& text, Colour colour) const;
    /// Bytes as they are, on standard output.
    void pass_on(std::span<const uint8_t> bytes);
    /// Asks a yes-or-no question; false when nobody can answer.
    bool confirm(const std::string& question);
    /// Has one of `most` chosen that the text numbers from 1 on; 0 when nobody can answer, or does
    /// not want to.
    size_t choose(const std::string& text, size_t most);

    /// From now on neither progress nor remarks.
    void be_quiet();
    /// From now on standard output carries JSON lines (events.h) in the place of text.
    void tell_events();
    bool tells_events() const { return events_; }
    /// One of them.
    void put_event(std::string_view json_line);

    /// Progress is drawn in place.
    bool is_live() const { return live_ && !quiet_; }
    /// Draws these rows from now on, on such a terminal. None: takes them away.
    void show(std::vector<TableRow> rows);
    /// How many there is room for.
    size_t most_rows() const;

    /// A phase begins; 0 bytes: nobody knows how long it takes.
    void begin(std::string phase, uint64_t total_bytes);
    void advance(uint64_t done_bytes);
    /// The phase is done. Without a phase: nothing.
    void end();
    /// The phase failed, or nobody cares any more.
    void abandon() { show({}); }
    /// Time passes: redraws.
    void tick();

    /// What an end in the middle still puts on standard output.
    using LastLine = std::function<std::string(const Failure&, RomContents)>;
    void set_last_line(LastLine last_line);
    /// Says so before the process ends in the middle; nobody else says anything afterwards.
    /// A reader that has stopped does not keep it.
    void say_last(const std::string& warning, const Failure& failure, RomContents rom);
    /// Why not everything has reached standard output; "" when it has. The work goes on without it.
    std::string output_complaint() const;

private:
    using Clock = Progress::Clock;

    std::string ask(const std::string& question);
    void write_out(std::string_view text);
    void put_line(int fd, std::string_view line);
    void refresh(std::chrono::milliseconds interval);
    void draw();
    std::string erasure() const;
    void erase();
    std::string text_of(const TableRow& row, size_t columns) const;
    std::string text_of(const Progress& progress, size_t columns, bool in_table) const;
    std::string bar(const Progress& progress, size_t columns) const;
    std::string summary(const Progress& progress) const;
    void print_quarter(const Progress& progress);

    files::Descriptor out_;
    files::Descriptor err_;
    bool live_; ///< standard output is a terminal that can redraw lines
    bool colour_;

    mutable std::timed_mutex mutex_;
    std::atomic<bool> ending_ = false;
    int output_error_ = 0; ///< errno of the first one
    bool events_ = false;
    bool quiet_ = false;
    std::vector<TableRow> rows_; ///< of a phase: one, also where none is drawn
    size_t drawn_rows_ = 0;      ///< on the terminal now
    Clock::time_point drawn_;
    unsigned quarters_said_ = 0;
    LastLine last_line_;
};

/// "1:05".
std::string clock_text(double seconds);

} // namespace tool
