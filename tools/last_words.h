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

/// What an end in the middle means for the camera and what to do then; "" for nothing; and what the
/// ROM holds then, for the last line. The texts must be static and need no escapes in JSON.
void set_consequence(const char* text, const char* rom);
const char* consequence();

/// From now on an interrupt prints `promise` and lets the work go on to a safe point; a second one
/// ends the program. The text must be static.
void postpone_interrupts(const char* promise);
/// One has come since.
bool interrupt_came();
/// Back to ending at once. True when one came meanwhile.
bool stop_postponing();

/// An interrupt has come that ends the program: the thread that takes interrupts does so, and
/// nobody else has anything to say.
bool must_end();
/// For all others: does not return if so.
void wait_for_end();
/// What it says before.
void tell_of_interrupt();
/// From now on interrupts are counted, and nothing else.
void count_interrupts();
unsigned interrupt_count();

/// Called by the one thread that takes interrupts, so that none cuts a sleep of the others short.
void receive_interrupts();

/// Whether an interrupt has to end a line of the terminal first.
void set_line_open(bool open);

} // namespace tool::last_words
