// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "arguments.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tool {

/// Lays help out for a terminal of 80 columns: what the command does, how it is called, an example,
/// what may follow it, and the options of all commands. The first line of a command's footer is its
/// example.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter();
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_subcommand(const CLI::App* command) const override;
    std::string make_option(const CLI::Option* option, bool is_positional) const override;
};

/// Makes `help COMMAND ...` the same as `COMMAND ... --help`.
void add_help_command(CLI::App& app, Arguments&);

/// One line that says what is wrong with the command line, and what to do.
std::string usage_error(const CLI::App* app, const CLI::Error& error);

} // namespace tool
