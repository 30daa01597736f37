// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command_line.h"
#include "terminal/value.h"

namespace tool {

/// Gives the command --all: what it does is done with each camera, one after the other.
void add_all(Command& command, Arguments& arguments);

/// Does what the command line asks for, with each camera where it says so; failures are told. The
/// worst exit code.
ExitCode run_command(Console& console, const Arguments& arguments);
ExitCode run_for_each(Console& console, const Arguments& arguments, const Run& run);

/// The exit code of the two that needs attention first.
ExitCode worse(int a, int b);

/// Prints an object as JSON; with --all in one line, which names the camera.
void say_json(Console& console, const Arguments& arguments, const Members& members);

} // namespace tool
