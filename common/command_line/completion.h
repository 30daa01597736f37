// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command.h"

namespace command_line {

/// Answers 'PROGRAM --complete WORDS ...', what the completion scripts ask, on standard output: the
/// words that can complete the last one, and FILES where the shell shall look for them. False for
/// any other command line.
bool answer_completion(const Program& program, int argc, char** argv);

} // namespace command_line
