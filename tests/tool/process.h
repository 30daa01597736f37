// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

namespace test {

/// How a program ended, and what it printed.
struct Outcome {
    int exit_code = -1; ///< -1: killed by a signal or by the time limit
    std::string out;    ///< on a terminal: everything
    std::string err;
};

struct RunOptions {
    std::map<std::string, std::string> environment; ///< added to ours
    unsigned terminal_columns = 0;                  ///< 0: no terminal, else one of this width
    std::string typed;                              ///< what the user types on the terminal
};

/// Runs a program to its end; kills it after a minute.
Outcome run_program(const std::vector<std::string>& command, const RunOptions& options = {});

inline bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

} // namespace test
