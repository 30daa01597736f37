// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command_line.h"

namespace tool {

/// A command's help for a terminal of 80 columns: what the command does, how it is called, an
/// example, what may follow it, and the options of all commands. The first line of a command's
/// footer is its example.
std::string help_of(const Command& command);
/// The same for programs.
std::string help_json(const Command& command);

/// Makes `help COMMAND ...` the same as `COMMAND ... --help`.
void add_help_command(Command& app, Arguments& arguments);

/// One line that says what is wrong with the command line, and what to do.
std::string complaint_about(const command_line::Mistake& mistake);

} // namespace tool
