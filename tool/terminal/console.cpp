// SPDX-License-Identifier: Apache-2.0
#include "terminal/console.h"

#include "files/write_all.h"
#include "terminal/text.h"

#include <unistd.h>
#include <condition_variable>
#include <string>

namespace tool {

/// The library's line without trailing blanks and without the padding behind the time stamp.
static std::string tidy(std::string_view line)
{
    while (line.ends_with(' ') || line.ends_with('\r'))
        line.remove_suffix(1);
    std::string text(line);
    if (text.starts_with('[')) {
        const size_t stamp_end = text.find(']');
        if (stamp_end != std::string::npos) {
            const size_t word = text.find_first_not_of(' ', stamp_end + 1);
            if (word != std::string::npos)
                text.replace(stamp_end + 1, word - stamp_end - 1, " ");
        }
    }
    return printable(text);
}

Console::Console(int verbosity, unsigned patience_s)
    : verbosity_(verbosity),
      patience_(patience_s),
      ticker_([this](const std::stop_token& over) { keep_time(over); })
{
    nyxus_set_line_callback(nullptr, take_line, this);
    nyxus_set_progress_callback(nullptr, take_progress, this);
}

Console::~Console()
{
    nyxus_set_progress_callback(nullptr, nullptr, nullptr);
    nyxus_set_line_callback(nullptr, nullptr, nullptr);
    drain();
}

void Console::sign_of_life()
{
    latest_sign_ = std::chrono::steady_clock::now();
}

void Console::set_patient(bool patient)
{
    sign_of_life();
    patient_ = patient;
}

/// The line goes the way of those that are printed, for the sake of their order.
void Console::take_line(NyDevice*, uint32_t kind, const char* text, size_t length, void* console)
{
    const std::string_view line(text, length);
    if (kind == NYXUS_LINE_MARKS)
        return;
    (void)files::write_all(STDERR_FILENO, std::string(line) + (line.ends_with('\n') ? "" : "\n"));
    static_cast<Console*>(console)->show_prints(false);
}

void Console::take_progress(NyDevice*, uint64_t /*done*/, uint64_t /*total*/, void* user)
{
    static_cast<Console*>(user)->sign_of_life();
}

void Console::show_prints(bool all)
{
    const std::lock_guard lock(capture_mutex_);
    if (verbosity_ == 0)
        return capture_.keep_the_last();
    for (const std::string& line : capture_.take_lines(all))
        display_.warn("  | " + tidy(line));
}

void Console::keep_time(const std::stop_token& over)
{
    constexpr std::chrono::milliseconds kTick{100};
    std::unique_lock lock(tick_mutex_);
    std::condition_variable_any wake;
    while (!over.stop_requested()) {
        wake.wait_for(lock, over, kTick, [] { return false; });
        tick();
    }
}

void Console::tick()
{
    show_prints(false);
    display_.tick();
    if (!patient_ && std::chrono::steady_clock::now() - latest_sign_.load() > patience_)
        give_up();
}

/// The camera's thread is stuck in the library, so there is nothing to return to.
void Console::give_up()
{
    interrupts_.end_program(
        kExitTimeout,
        format("the camera has been silent for %lld s; unplug it and plug it in again",
               static_cast<long long>(patience_.count())));
}

} // namespace tool
