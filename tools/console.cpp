// SPDX-License-Identifier: Apache-2.0
#include "console.h"

#include "last_words.h"
#include "text.h"

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
    : verbosity_(verbosity), patience_(patience_s), capture_(*this)
{
    nyxus_set_line_callback(nullptr, take_line, this);
    nyxus_set_progress_callback(nullptr, take_progress, this);
}

Console::~Console()
{
    nyxus_set_progress_callback(nullptr, nullptr, nullptr);
    nyxus_set_line_callback(nullptr, nullptr, nullptr);
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

void Console::take_line(NyDevice*, uint32_t kind, const char* text, size_t length, void* console)
{
    std::string_view line(text, length);
    if (line.ends_with('\n'))
        line.remove_suffix(1);
    if (kind != NYXUS_LINE_MARKS)
        static_cast<Console*>(console)->on_line(line);
}

void Console::take_progress(NyDevice*, uint64_t /*done*/, uint64_t /*total*/, void* user)
{
    static_cast<Console*>(user)->sign_of_life();
}

void Console::on_line(std::string_view line)
{
    const std::lock_guard lock(line_mutex_);
    if (verbosity_ > 0) {
        display_.warn("  | " + tidy(line));
    } else {
        last_words::remember_line(line);
    }
}

void Console::on_tick()
{
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
