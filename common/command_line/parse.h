// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command.h"

namespace command_line {

/// The exit code of a program that is called wrongly.
inline constexpr int kUsageCode = 2;

/// Reads the command line into the targets and does what its command says. The program's exit code
/// when there is nothing left to do: help or the version has been printed, or what is wrong.
std::optional<int> parse(const Program& program, int argc, char** argv);

} // namespace command_line
