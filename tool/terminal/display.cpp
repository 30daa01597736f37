// SPDX-License-Identifier: Apache-2.0
#include "terminal/display.h"

#include "files/write_all.h"
#include "terminal/json_text.h"
#include "terminal/text.h"
#include "text/numbers.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tool {

namespace {

using std::chrono::milliseconds;

constexpr size_t kPhaseColumns = 14;
constexpr milliseconds kSignOfLifeInterval{300};
constexpr milliseconds kRedrawInterval{100};
constexpr milliseconds kPlainLineInterval{2000};
/// For the lock: perhaps nobody reads what its owner writes.
constexpr milliseconds kPatience{1000};

bool variable_is_set(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0';
}

bool can_redraw(int fd)
{
    const char* terminal = std::getenv("TERM");
    return isatty(fd) == 1 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

winsize terminal_size(int fd)
{
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        size.ws_col = 80;
        size.ws_row = 24;
    }
    return size;
}

/// Whole characters of a UTF-8 text.
std::string cut(std::string text, size_t columns)
{
    if (text.size() <= columns)
        return text;
    while (columns > 0 && (static_cast<unsigned char>(text[columns]) & 0xC0) == 0x80)
        --columns;
    text.resize(columns);
    return text;
}

/// " 50%  0:12 left"
std::string standing_of(const Progress& progress)
{
    const auto left_s = progress.remaining_s();
    return format("%4.0f%%", std::floor(progress.share().value_or(0) * 100)) +
           (left_s ? "  " + clock_text(*left_s) + " left" : "");
}

} // namespace

Display::Display()
    : out_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)),
      err_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)),
      live_(can_redraw(out_.get())),
      colour_(live_ && !variable_is_set("NO_COLOR"))
{
}

Display::~Display()
{
    show({});
}

void Display::say(std::string_view line)
{
    const std::lock_guard lock(mutex_);
    if (events_ && quiet_)
        return;
    put_line(out_.get(), events_
                             ? json_line(Members{{"event", "message"}, {"text", std::string(line)}})
                             : std::string(line));
}

void Display::note(std::string_view line)
{
    if (!quiet_)
        say(line);
}

void Display::warn(std::string_view line)
{
    const std::string text = text::printable_lines(line);
    const std::unique_lock lock(mutex_, kPatience);
    if (lock) {
        put_line(err_.get(), text);
    } else if (!ending_) {
        (void)files::write_before_end(err_.get(), text + "\n");
    }
}

std::string Display::coloured(const std::string& text, Colour colour) const
{
    return colour_ && colour != Colour::kNone
               ? format("\033[%dm", static_cast<int>(colour)) + text + "\033[0m"
               : text;
}

void Display::pass_on(std::span<const uint8_t> bytes)
{
    const std::lock_guard lock(mutex_);
    write_out({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

files::Descriptor Display::give_output_away()
{
    const std::lock_guard lock(mutex_);
    files::Descriptor out =
        std::exchange(out_, files::Descriptor(fcntl(err_.get(), F_DUPFD_CLOEXEC, 3)));
    live_ = can_redraw(out_.get());
    colour_ = live_ && !variable_is_set("NO_COLOR");
    return out;
}

bool Display::confirm(const std::string& question)
{
    const std::string answer = ask(question + " [y/N] ");
    return answer.starts_with('y') || answer.starts_with('Y');
}

size_t Display::choose(const std::string& list, size_t most)
{
    std::string answer = ask(list + "\n" + format("Which one? [1 to %zu, Enter for none] ", most));
    answer.erase(std::min(answer.find('\n'), answer.size()));
    return text::parse_number(answer, most).value_or(0);
}

/// The first characters of a line; "" when nobody can answer.
std::string Display::ask(const std::string& question)
{
    if (isatty(STDIN_FILENO) != 1 || isatty(out_.get()) != 1)
        return "";
    {
        const std::lock_guard lock(mutex_);
        erase();
        write_out(question);
    }
    char answer[16] = "";
    return std::fgets(answer, sizeof answer, stdin) == nullptr ? "" : answer;
}

void Display::be_quiet()
{
    const std::lock_guard lock(mutex_);
    quiet_ = true;
}

void Display::tell_events()
{
    const std::lock_guard lock(mutex_);
    events_ = true;
    quiet_ = live_ = colour_ = false;
}

void Display::put_event(std::string_view json_line)
{
    const std::lock_guard lock(mutex_);
    put_line(out_.get(), json_line);
}

void Display::show(std::vector<TableRow> rows)
{
    const std::lock_guard lock(mutex_);
    const auto phase_of = [](const TableRow& row) { return row.progress.phase(); };
    const bool is_new = !std::ranges::equal(rows, rows_, {}, phase_of, phase_of);
    rows_ = std::move(rows);
    if (rows_.empty()) {
        erase();
    } else {
        refresh(is_new ? milliseconds::zero() : kRedrawInterval);
    }
}

size_t Display::most_rows() const
{
    const size_t rows = terminal_size(out_.get()).ws_row;
    return rows > 2 ? rows - 2 : 1;
}

void Display::tick()
{
    const std::lock_guard lock(mutex_);
    refresh(live_ ? kRedrawInterval : kSignOfLifeInterval);
}

bool Display::is_listened_to() const
{
    pollfd waits[] = {{out_.get(), POLLOUT, 0}, {err_.get(), POLLOUT, 0}};
    (void)poll(waits, std::size(waits), 0);
    return waits[0].revents != 0 && waits[1].revents != 0;
}

void Display::set_last_line(LastLine last_line)
{
    const std::lock_guard lock(mutex_);
    has_put_result_ = has_put_result_ && !last_line;
    last_line_ = std::move(last_line);
}

void Display::put_result(const std::string& json)
{
    const std::lock_guard lock(mutex_);
    put_line(out_.get(), json);
    last_line_ = nullptr;
    has_put_result_ = true;
}

bool Display::has_put_result() const
{
    const std::unique_lock lock(mutex_, kPatience);
    return lock && has_put_result_;
}

bool Display::say_last(const std::string& warning, const Failure& failure, RomContents rom)
{
    ending_ = true;
    const bool is_held = mutex_.try_lock_for(kPatience); // for good
    if (is_held && has_put_result_) {
        ending_ = false;
        mutex_.unlock();
        return false;
    }
    (void)files::write_before_end(out_.get(), erasure());
    (void)files::write_before_end(err_.get(), warning);
    if (last_line_)
        (void)files::write_before_end(out_.get(), last_line_(failure, rom) + "\n");
    return true;
}

std::string Display::output_complaint() const
{
    const std::lock_guard lock(mutex_);
    return output_error_ == 0
               ? ""
               : std::string("cannot write to standard output: ") + std::strerror(output_error_);
}

void Display::write_out(std::string_view text)
{
    const int error = files::write_all(out_.get(), text);
    if (output_error_ == 0)
        output_error_ = error;
}

void Display::put_line(int fd, std::string_view line)
{
    erase();
    said_ = Clock::now();
    const std::string text = std::string(line) + "\n";
    if (fd == out_.get()) {
        write_out(text);
    } else {
        (void)files::write_all(fd, text); // there is nowhere to complain
    }
    if (is_live() && !rows_.empty())
        draw();
}

/// Draws the rows, or tells programs of the phase, unless that has just been done.
void Display::refresh(milliseconds interval)
{
    if (rows_.empty() || Clock::now() - drawn_ < interval)
        return;
    if (is_live())
        return draw();
    if (!events_)
        return put_quarter();
    drawn_ = Clock::now();
    put_line(out_.get(), rows_.front().progress.json_line());
}

/// Where nothing is redrawn: a line at each quarter of work that takes its time.
void Display::put_quarter()
{
    const Progress& progress = rows_.front().progress;
    const auto quarter = static_cast<unsigned>(progress.share().value_or(0) * 4);
    const bool is_new = quarter > quarters_told_ && quarter < 4;
    if (is_new && (quiet_ || Clock::now() - said_ < kPlainLineInterval))
        return;
    quarters_told_ = quarter;
    if (is_new)
        put_line(out_.get(), padded(progress.phase(), kPhaseColumns) + standing_of(progress));
}

/// At once, so that nothing flickers.
void Display::draw()
{
    // One column stays free: a full line would make some terminals wrap.
    const size_t columns = terminal_size(out_.get()).ws_col - 1U;
    std::string picture = rows_.size() < drawn_rows_ ? erasure() : "\r";
    if (rows_.size() >= drawn_rows_ && drawn_rows_ > 1)
        picture += format("\033[%zuA", drawn_rows_ - 1);
    for (const TableRow& row : rows_)
        picture += (&row == &rows_.front() ? "" : "\n") + text_of(row, columns) + "\033[K";
    write_out(picture);
    drawn_rows_ = rows_.size();
    drawn_ = Clock::now();
}

/// What takes the rows off the terminal.
std::string Display::erasure() const
{
    if (drawn_rows_ == 0)
        return "";
    return drawn_rows_ == 1 ? "\r\033[K" : format("\r\033[%zuA\033[J", drawn_rows_ - 1);
}

void Display::erase()
{
    write_out(erasure());
    drawn_rows_ = 0;
}

std::string Display::text_of(const TableRow& row, size_t columns) const
{
    const std::string label = cut(row.label, columns);
    const size_t room = columns - label.size();
    return label + (row.progress.phase().empty() ? coloured(cut(row.text, room), row.colour)
                                                 : text_of(row.progress, room, !label.empty()));
}

/// The narrower the terminal, the less is said: first the time goes, then the bar.
std::string Display::text_of(const Progress& progress, size_t columns, bool in_table) const
{
    const size_t least = in_table ? 5 : 10;
    const size_t most = in_table ? 24 : 50;
    const std::string head = padded(progress.phase(), kPhaseColumns);
    const auto share = progress.share();
    if (!share)
        return cut(head + format("%.1f s", progress.seconds()), columns);
    const std::string with_time = standing_of(progress);
    const std::string tail = with_time.substr(0, with_time.find('%') + 1);
    for (const std::string& end : {with_time, tail}) {
        const size_t fixed = head.size() + 2 + end.size();
        if (columns >= fixed + least)
            return head + bar(*share, std::min(columns - fixed, most)) + end;
    }
    return cut(head + tail, columns);
}

std::string Display::bar(double share, size_t columns) const
{
    std::string cells(static_cast<size_t>(share * static_cast<double>(columns)), '=');
    cells += '>';
    cells.resize(columns, ' ');
    return "[" + coloured(cells, Colour::kGreen) + "]";
}

} // namespace tool
