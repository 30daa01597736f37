// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "exit_codes.h"

#include <cstdint>
#include <functional>
#include <string>

namespace tool {

class Console;

/// The command line.
struct Arguments {
    std::string command;
    std::string camera; ///< serial number, bus:address or port path; "" for the only one
    int verbosity = 0;
    unsigned patience_s = 60;
    bool json = false;

    std::string file; ///< "" for the latest backup (recover)
    std::string mfi_file;
    std::string serial;
    uint32_t eeprom_kib = 0; ///< 0: the user has not said that there is one
    uint32_t size_bytes = 0; ///< of a dump; 0: as large as the ROM
    bool skip_verify = false;
    bool skip_backup = false;
    bool force = false;
    bool reset = false;
    bool yes = false;
    bool all = false;  ///< upgrade every camera
    unsigned jobs = 0; ///< so many at a time; 0: all
    unsigned wait_s = 5;

    /// What a command for a single feature does; empty for the other commands.
    std::function<ExitCode(Console&, const Arguments&)> action;
};

struct ParsedArguments {
    Arguments arguments;
    bool finished = false; ///< help or a usage error has been printed already
    int exit_code = 0;
};

ParsedArguments parse_arguments(int argc, char** argv);

} // namespace tool
