// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/arguments.h"
#include "command_line/command.h"

#include <cstdint>
#include <memory>
#include <string>

// How a command declares itself: its name, its options, and what it does. Parsing the command line
// leaves that in Arguments.
namespace tool {

using command_line::Command;
using command_line::Option;

inline constexpr command_line::Range kByteRange{0, 0xFF};

/// "on, off"
std::string listed(const command_line::Words& words);

/// A command below `parent`; `example` is what follows its name there.
Command& add_command(Command& parent, const std::string& name, const std::string& summary,
                     const std::string& example);
/// What the command does; nothing when a command below it was chosen.
void set_run(Command& command, Arguments& arguments, Run run);

/// The same for a command with options of its own, which are returned.
template <typename Options>
Options& set_run(Command& command, Arguments& arguments,
                 ExitCode (*run)(Console&, const Arguments&, const Options&))
{
    const auto options = std::make_shared<Options>();
    set_run(command, arguments, [run, options](Console& console, const Arguments& chosen) {
        return run(console, chosen, *options);
    });
    return *options;
}

/// The option of commands that write: tell what would be written, and do not.
void add_dry_run(Command& command, Arguments& arguments);

/// The option of commands that change the ROM.
void add_no_backup(Command& command, Arguments& arguments);

/// The required FILE.
Option& add_file(Command& command, std::string* file, const std::string& help);
/// A number whose range help tells.
Option& add_number(Command& command, const std::string& name, command_line::Target target,
                   uint32_t least, uint32_t most, const std::string& help);
/// The required ADDRESS of a memory, whose range is told in hexadecimal.
Option& add_address(Command& command, uint32_t* value, uint32_t least, uint32_t most);
/// A text out of a list; a mistyped one is told which is near.
Option& add_choice(Command& command, const std::string& name, command_line::Target target,
                   const command_line::Words& choices, const std::string& help);

} // namespace tool
