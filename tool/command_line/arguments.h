// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal/exit_codes.h"

#include <nyxus/engine/camera.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tool {

class Console;

struct Arguments;
/// What a command does. It returns its exit code or throws a Failure.
using Run = std::function<ExitCode(Console&, const Arguments&)>;

/// The command line.
struct Arguments {
    Run run;

    std::string camera; ///< serial number, bus:address or port path; "" for the only one
    int verbosity = 0;
    bool quiet = false;
    bool json = false;
    bool dry_run = false;
    unsigned patience_s = 60;
    unsigned queue_depth = nyxus::engine::Camera::kQueueDepth;
    std::optional<unsigned> wait_s; ///< for a camera that is not there (yet, or just now)

    std::string file; ///< "" for the latest backup (recover)
    std::string mfi_file;
    std::string manifest; ///< file that names the images; "" for `file`
    std::string sha256;   ///< of `file`; "" for any
    bool allow_downgrade = false;
    std::string serial;
    uint32_t eeprom_kib = 0; ///< 0: the user has not said that there is one
    uint32_t size_bytes = 0; ///< of a dump; 0: as large as the ROM
    std::string keep;        ///< "" for the engine's choice
    std::string discard;     ///< what is not kept: "mfi", "reserved", or both with a comma
    std::string operation = "upgrade"; ///< what the journal calls it
    bool skip_verify = false;
    bool skip_backup = false;
    bool force = false;
    bool reset = false;
    bool yes = false;
    bool all = false;  ///< upgrade every camera
    unsigned jobs = 0; ///< so many at a time; 0: all

    /// How long a camera may take to come back after a restart.
    unsigned return_wait_s() const { return wait_s.value_or(5); }
};

struct ParsedArguments {
    Arguments arguments;
    std::optional<int> exit_code; ///< when help or a usage error has been printed already
};

ParsedArguments parse_arguments(int argc, char** argv);

} // namespace tool
