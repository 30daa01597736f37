// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "arguments.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

// How a command declares itself: its name, its options, and what it does. Parsing the command line
// leaves that in Arguments.
namespace tool {

/// A command below `parent`, with its example.
CLI::App* add_command(CLI::App& parent, const std::string& name, const std::string& summary,
                      const std::string& example);
/// What the command does; nothing when a command below it was chosen.
void set_run(CLI::App* command, Arguments& arguments, Run run);

/// The option of commands that write: tell what would be written, and do not.
void add_dry_run(CLI::App* command, Arguments& arguments);

/// The required FILE.
CLI::Option* add_file(CLI::App* command, std::string& file, const std::string& help);
/// Reads what an option is given as numbers: decimal, whatever zeros are in front, or hexadecimal
/// with 0x.
CLI::Option* as_number(CLI::Option* option);
/// A number in the given range; decimal, or hexadecimal with 0x.
CLI::Option* add_number(CLI::App* command, const std::string& name, uint32_t& value, uint32_t least,
                        uint32_t most, const std::string& help);
/// The required ADDRESS of a memory, whose range is told in hexadecimal.
CLI::Option* add_address(CLI::App* command, uint32_t& value, uint32_t least, uint32_t most);
/// One or more bytes.
CLI::Option* add_bytes(CLI::App* command, const std::string& name, std::vector<uint32_t>& values,
                       const std::string& help);
/// Refuses what is not in the list; a mistyped word is told which is near.
CLI::Validator one_of(const std::vector<std::string>& choices);
/// A text out of a list; a mistyped one is told which is near.
CLI::Option* add_choice(CLI::App* command, const std::string& name, std::string& value,
                        const std::vector<std::string>& choices, const std::string& help);

} // namespace tool
