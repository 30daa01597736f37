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

Console::Console(int verbosity) : verbosity_(verbosity), capture_(*this) {}

void Console::set_watcher(Watcher* watcher)
{
    const std::lock_guard lock(watcher_mutex_);
    watcher_ = watcher;
}

void Console::on_mark()
{
    const std::lock_guard lock(watcher_mutex_);
    if (watcher_ != nullptr)
        watcher_->on_mark();
}

void Console::on_row_end()
{
    const std::lock_guard lock(watcher_mutex_);
    if (watcher_ != nullptr)
        watcher_->on_row_end();
}

void Console::on_line(std::string_view line)
{
    if (verbosity_ > 0)
        display_.warn("  | " + tidy(line));
    else
        last_words::remember_line(line);
    const std::lock_guard lock(watcher_mutex_);
    if (watcher_ != nullptr)
        watcher_->on_line(line);
}

void Console::on_tick()
{
    display_.tick();
}

} // namespace tool
