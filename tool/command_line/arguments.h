// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal/exit_codes.h"

#include <nyxus/engine/camera.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool {

class Console;

struct Arguments;
/// What a command does. It returns its exit code or throws a Failure.
using Run = std::function<ExitCode(Console&, const Arguments&)>;

/// What the command line says to all commands; each has options of its own beside them.
struct Arguments {
    Run run;
    std::vector<std::string> words; ///< all that was typed behind the program's name

    std::string camera; ///< serial number, bus:address or port path; "" for the only one
    int verbosity = 0;
    bool quiet = false;
    bool json = false;
    unsigned patience_s = 60;
    unsigned queue_depth = nyxus::engine::Camera::kQueueDepth;
    std::optional<unsigned> wait_s; ///< for a camera that is not there (yet, or just now)

    // Many commands have these.
    bool dry_run = false;
    bool skip_backup = false;
    bool all = false;                      ///< with each camera in turn
    std::optional<nyxus::CameraInfo> turn; ///< the one whose turn it is then

    /// How long a camera may take to come back after a restart.
    unsigned return_wait_s() const { return wait_s.value_or(5); }
};

struct ParsedArguments {
    Arguments arguments;
    std::optional<int> exit_code; ///< when help or a usage error has been printed already
};

ParsedArguments parse_arguments(int argc, char** argv);

} // namespace tool
