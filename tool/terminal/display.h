// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"
#include "terminal/failure.h"
#include "terminal/progress.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <span>
#include <string_view>

namespace tool {

using engine::RomContents;

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
    /// Standard output, for somebody's bytes: from now on all that is said goes to standard error.
    files::Descriptor give_output_away();
    /// Asks a yes-or-no question; false when nobody can answer.
    bool confirm(const std::string& question);
    /// Asks for one of a numbered list; 0 for none, or when nobody can answer.
    size_t choose(const std::string& list, size_t most);

    /// From now on neither progress nor remarks.
    void be_quiet();
    bool is_quiet() const { return quiet_; }
    /// From now on standard output carries JSON lines (docs/json.md) in the place of text.
    void tell_events();
    bool tells_events() const { return events_; }
    /// One of them.
    void put_event(std::string_view json_line);

    /// Progress is drawn in place.
    bool is_live() const { return live_ && !quiet_; }
    /// These rows from now on: drawn in place on such a terminal; JSON tells of the first one.
    /// None: takes them away.
    void show(std::vector<TableRow> rows);
    /// How many there is room for.
    size_t most_rows() const;
    /// Time passes: redraws.
    void tick();
    /// Whether a line finds room now: who reads it may have stopped.
    bool is_listened_to() const;

    /// What an end in the middle still puts on standard output.
    using LastLine = std::function<std::string(const Failure&, RomContents)>;
    void set_last_line(LastLine last_line);
    /// The event that ends a command. What comes later is too late to end it in the middle.
    void put_result(const std::string& json);
    bool has_put_result() const;
    /// Says so before the process ends in the middle; nobody else says anything afterwards.
    /// A reader that has stopped does not keep it. False, and nothing is said, after the result.
    bool say_last(const std::string& warning, const Failure& failure, RomContents rom);
    /// Why not everything has reached standard output; "" when it has. The work goes on without it.
    std::string output_complaint() const;

private:
    std::string ask(const std::string& question);
    using Clock = Progress::Clock;

    void write_out(std::string_view text);
    void put_line(int fd, std::string_view line);
    void refresh(std::chrono::milliseconds interval);
    void draw();
    void put_quarter();
    std::string erasure() const;
    void erase();
    std::string text_of(const TableRow& row, size_t columns) const;
    std::string text_of(const Progress& progress, size_t columns, bool in_table) const;
    std::string bar(double share, size_t columns) const;

    files::Descriptor out_;
    files::Descriptor err_;
    bool live_; ///< standard output is a terminal that can redraw lines
    bool colour_;

    mutable std::timed_mutex mutex_;
    std::atomic<bool> ending_ = false;
    int output_error_ = 0; ///< errno of the first one
    bool events_ = false;
    std::atomic<bool> quiet_ = false;
    std::vector<TableRow> rows_;
    size_t drawn_rows_ = 0; ///< on the terminal now
    Clock::time_point drawn_;
    Clock::time_point said_; ///< the last line
    unsigned quarters_told_ = 0;
    LastLine last_line_;
    bool has_put_result_ = false;
};

} // namespace tool
