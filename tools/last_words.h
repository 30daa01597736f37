// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/// What still reaches the terminal when the process crashes with captured text in its hands.
namespace tool::last_words {

/// From now on a fatal signal copies what was not shown, and what is left in the pipe, to err_fd.
void arm(int pipe_fd, int err_fd);
void disarm();

/// Text that was taken from the pipe but not shown; replaces what was remembered before.
void remember(std::string_view text);
/// Adds a line that is kept back unless something goes wrong (the last 2 KiB of them).
void remember_line(std::string_view line);

} // namespace tool::last_words
