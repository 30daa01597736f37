// SPDX-License-Identifier: Apache-2.0
#include "progress.h"

#include "events.h"
#include "files/write_all.h"
#include "last_words.h"
#include "text.h"
#include "text/numbers.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tool {

namespace {

constexpr size_t kPhaseColumns = 12;
constexpr size_t kSmallestBar = 10;
constexpr size_t kLargestBar = 50;
constexpr size_t kUsualWidth = 80;
constexpr size_t kUsualHeight = 24;
constexpr std::chrono::milliseconds kSignOfLifeInterval{300};
constexpr std::chrono::milliseconds kRedrawInterval{100};
constexpr double kPlainLineInterval_s = 2.0;
constexpr double kRateKnown_s = 0.3;

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

std::pair<size_t, size_t> terminal_size(int fd)
{
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0)
        return {size.ws_col, size.ws_row};
    return {kUsualWidth, kUsualHeight};
}

size_t terminal_width(int fd)
{
    return terminal_size(fd).first;
}

} // namespace

/// The narrower the terminal, the less is said: first the time goes, then the rate, then the bar.
std::string bar_line(const Display& display, const Progress& progress, size_t width,
                     std::pair<size_t, size_t> bar_columns)
{
    const auto [smallest, largest] = bar_columns;
    const std::string head = padded(progress.phase, kPhaseColumns);
    const std::string share =
        format("%4u%%", static_cast<unsigned>(progress.bytes * 100 / progress.total));
    std::string with_rate = share;
    if (progress.rate() > 0)
        with_rate += format("%8.1f KiB/s", progress.rate() / 1024);
    std::string with_time = with_rate;
    if (const auto left_s = progress.remaining_s())
        with_time.append("  ").append(clock_text(*left_s)).append(" left");
    for (const std::string& tail : {with_time, with_rate, share}) {
        const size_t fixed = head.size() + 2 + tail.size();
        if (width < fixed + smallest)
            continue;
        const size_t columns = std::min(width - fixed, largest);
        const auto full = static_cast<size_t>(progress.bytes * columns / progress.total);
        return head + display.bar(full, columns) + tail;
    }
    return (head + share).substr(0, width);
}

std::string clock_text(double seconds)
{
    const auto whole = static_cast<unsigned>(std::ceil(seconds));
    return format("%u:%02u", whole / 60, whole % 60);
}

Display::Display()
    : out_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)),
      err_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)),
      live_(can_redraw(out_.get())),
      colour_(live_ && !variable_is_set("NO_COLOR"))
{
}

Display::~Display()
{
    abandon();
}

void Display::say(std::string_view line)
{
    const std::lock_guard lock(mutex_);
    if (events_ && quiet_)
        return;
    put_line(out_.get(), events_ ? json_line(Message{std::string(line)}) : line);
}

void Display::note(std::string_view line)
{
    if (!quiet_)
        say(line);
}

void Display::be_quiet()
{
    const std::lock_guard lock(mutex_);
    quiet_ = true;
}

std::string Display::coloured(const std::string& text, Colour colour) const
{
    return colour_ ? format("\033[%dm", static_cast<int>(colour)) + text + "\033[0m" : text;
}

std::string Display::bar(size_t full, size_t width) const
{
    std::string cells = std::string(full, '=') + '>';
    cells.resize(width, ' ');
    return "[" + coloured(cells, Colour::kGreen) + "]";
}

void Display::warn(std::string_view line)
{
    const std::lock_guard lock(mutex_);
    put_line(err_.get(), text::printable_lines(line));
}

void Display::tell_events()
{
    const std::lock_guard lock(mutex_);
    events_ = true;
    quiet_ = false;
    live_ = colour_ = false;
}

void Display::put_event(std::string_view json_line)
{
    const std::lock_guard lock(mutex_);
    put_line(out_.get(), json_line);
}

std::pair<size_t, size_t> Display::size() const
{
    return terminal_size(out_.get());
}

void Display::pass_on(std::span<const uint8_t> bytes)
{
    const std::lock_guard lock(mutex_);
    write_out({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void Display::begin(std::string phase, uint64_t total_bytes)
{
    end();
    const std::lock_guard lock(mutex_);
    if (quiet_)
        return;
    active_ = true;
    phase_ = std::move(phase);
    total_bytes_ = total_bytes;
    done_bytes_ = 0;
    quarters_said_ = 0;
    begun_ = drawn_ = Clock::now();
    if (live_) {
        redraw(true);
    } else if (events_) {
        put_progress(false);
    } else {
        put_line(out_.get(), phase_ + " ...");
    }
}

void Display::advance(uint64_t done_bytes)
{
    const std::lock_guard lock(mutex_);
    if (!active_)
        return;
    done_bytes_ = std::min(done_bytes, total_bytes_);
    if (live_) {
        redraw(false);
    } else if (!events_) {
        print_quarter();
    } else if (Clock::now() - drawn_ >= kRedrawInterval) {
        put_progress(false);
    }
}

void Display::end()
{
    const std::lock_guard lock(mutex_);
    if (!active_)
        return;
    done_bytes_ = total_bytes_;
    active_ = false;
    erase_bar();
    if (events_) {
        put_progress(true);
    } else {
        put_line(out_.get(), summary());
    }
}

void Display::abandon()
{
    const std::lock_guard lock(mutex_);
    active_ = false;
    erase_bar();
}

void Display::tick()
{
    const std::lock_guard lock(mutex_);
    if (active_ && live_) {
        redraw(false);
    } else if (active_ && events_ && Clock::now() - drawn_ >= kSignOfLifeInterval) {
        put_progress(false);
    }
}

bool Display::confirm(const std::string& question)
{
    const std::string answer = ask(question + " [y/N] ");
    return answer.starts_with('y') || answer.starts_with('Y');
}

size_t Display::choose(const std::string& text, size_t most)
{
    std::string answer = ask(text + "\n" + format("Which one? [1 to %zu, Enter for none] ", most));
    answer.erase(std::min(answer.find('\n'), answer.size()));
    return ::text::parse_number(answer, most).value_or(0);
}

/// The first characters of a line; "" when nobody can answer.
std::string Display::ask(const std::string& question)
{
    if (isatty(STDIN_FILENO) != 1 || isatty(out_.get()) != 1)
        return "";
    {
        const std::lock_guard lock(mutex_);
        erase_bar();
        write_out(question);
    }
    char answer[16] = "";
    return std::fgets(answer, sizeof answer, stdin) == nullptr ? "" : answer;
}

void Display::write_out(std::string_view text)
{
    const last_line::Turn turn;
    const int error = turn ? files::write_all(out_.get(), text) : 0;
    if (output_error_ == 0)
        output_error_ = error;
}

void Display::set_last_line(last_line::Kind kind, std::string_view head)
{
    last_line::set(out_.get(), kind, head);
}

std::string Display::output_complaint() const
{
    const std::lock_guard lock(mutex_);
    return output_error_ == 0
               ? ""
               : std::string("cannot write to standard output: ") + std::strerror(output_error_);
}

void Display::put_line(int fd, std::string_view line)
{
    erase_bar();
    const std::string text = std::string(line) + "\n";
    if (fd == out_.get()) {
        write_out(text);
    } else {
        (void)files::write_all(fd, text); // there is nowhere to complain
    }
    if (active_ && live_)
        redraw(true);
}

void Display::erase_bar()
{
    if (!bar_visible_)
        return;
    write_out("\r\033[K");
    bar_visible_ = false;
    last_words::set_line_open(false);
}

void Display::redraw(bool always)
{
    const auto now = Clock::now();
    if (!always && now - drawn_ < kRedrawInterval)
        return;
    drawn_ = now;
    bar_visible_ = true;
    last_words::set_line_open(true);
    // One column stays free: a full line would make some terminals wrap.
    write_out("\r" + bar_line(terminal_width(out_.get()) - 1) + "\033[K");
}

std::string Display::bar_line(size_t width) const
{
    const std::string head = padded(phase_, kPhaseColumns);
    const double elapsed = elapsed_s();
    if (total_bytes_ == 0) {
        const std::string time = format("%5.1f s", elapsed);
        if (width < head.size() + 2 + kSmallestBar + time.size())
            return (head + time).substr(0, width);
        return head + wandering_bar(kSmallestBar) + time;
    }
    return tool::bar_line(*this, {phase_, done_bytes_, total_bytes_, elapsed, false}, width,
                          {kSmallestBar, kLargestBar});
}

std::string Display::wandering_bar(size_t width) const
{
    // Three cells that wander to and fro.
    const size_t way = width - 3;
    const size_t step = static_cast<size_t>(elapsed_s() * 8) % (2 * way);
    std::string cells(width, ' ');
    cells.replace(step < way ? step : 2 * way - step, 3, "<=>");
    return "[" + coloured(cells, Colour::kGreen) + "]";
}

std::string Display::summary() const
{
    std::string text = live_ ? padded(phase_, kPhaseColumns) : phase_ + " ";
    text += format("done in %.1f s", elapsed_s());
    if (total_bytes_ > 0)
        text += format(", %.1f KiB", static_cast<double>(total_bytes_) / 1024);
    if (total_bytes_ > 0 && elapsed_s() > kRateKnown_s)
        text += format(" at %.1f KiB/s", rate_kib_per_s());
    return text;
}

/// Without a terminal: a line at every quarter, but not more than one every two seconds.
void Display::print_quarter()
{
    const unsigned quarter = percent() / 25;
    const double since_line_s = std::chrono::duration<double>(Clock::now() - drawn_).count();
    if (quarter <= quarters_said_ || quarter > 3 || since_line_s < kPlainLineInterval_s)
        return;
    quarters_said_ = quarter;
    drawn_ = Clock::now();
    put_line(out_.get(), format("%s %u%%", phase_.c_str(), percent()));
}

void Display::put_progress(bool done)
{
    drawn_ = Clock::now();
    put_line(out_.get(), json_line(Progress{phase_, done_bytes_, total_bytes_, elapsed_s(), done}));
}

double Display::elapsed_s() const
{
    return std::chrono::duration<double>(Clock::now() - begun_).count();
}

double Display::rate_kib_per_s() const
{
    return static_cast<double>(done_bytes_) / 1024 / std::max(elapsed_s(), 0.001);
}

unsigned Display::percent() const
{
    return total_bytes_ == 0 ? 0 : static_cast<unsigned>(done_bytes_ * 100 / total_bytes_);
}

} // namespace tool
