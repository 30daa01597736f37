// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

/// What 'state' and 'do' are asked for.
struct StateArguments {
    std::string socket; ///< empty: the simulation around this program
    std::string camera; ///< empty: all, or the only one
    std::string registers;
    std::string rom_file;
    uint16_t address = 0;
    uint8_t value = 0;
    bool silent = false;
    std::optional<unsigned> port; ///< empty: the one that the camera had
};

void add_state_commands(CLI::App& app, StateArguments& arguments);
/// Each returns the exit code and throws std::runtime_error, or UsageError for wrong arguments.
int print_state(const StateArguments& arguments);
int act(const CLI::App& command, const StateArguments& arguments);

} // namespace sim
