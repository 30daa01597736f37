// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/// What still reaches the terminal when the process dies with captured text in its hands.
namespace tool::last_words {

/// From now on a fatal signal copies what was not shown, and what is left in the pipe, to err_fd.
void arm(int pipe_fd, int err_fd);
void disarm();

/// Text that was taken from the pipe but not shown; replaces what was remembered before.
void remember(std::string_view text);
/// Adds a line that is kept back unless something goes wrong (the last 2 KiB of them).
void remember_line(std::string_view line);

/// Line that an interrupt (Ctrl-C) prints before the program ends; "" for none. The text must be
/// static.
void set_interrupt_text(const char* text);

/// Whether an interrupt has to end a line of the terminal first.
void set_line_open(bool open);

} // namespace tool::last_words
