// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

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
    std::vector<std::string> fault;
    std::optional<uint32_t> port; ///< empty: the one that the camera had
};

/// `job` becomes what the chosen command does. It returns the exit code and throws
/// std::runtime_error, or UsageError for wrong arguments.
void add_state_commands(command_line::Command& app, StateArguments& arguments,
                        std::function<int()>& job);

} // namespace sim
