// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

/// Tells a shell what can follow on a command line, from the very definitions that parse it.
namespace completion {

/// Among candidates: the names of files, which the shell knows best.
inline constexpr char kFiles[] = "FILES";

/// What may stand for an option, or a positional argument, that the definitions say nothing about.
using ValuesOf = std::function<std::vector<std::string>(const CLI::Option&)>;

/// The words that can complete the last of `words`, which are those after the program's name.
std::vector<std::string> candidates(CLI::App& app, const std::vector<std::string>& words,
                                    const ValuesOf& values_of);

/// Answers 'PROGRAM --complete WORDS ...', what the completion scripts ask, on standard output.
/// False for any other command line.
bool answer(CLI::App& app, int argc, char** argv, const ValuesOf& values_of);

} // namespace completion
