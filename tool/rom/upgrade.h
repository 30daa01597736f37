// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "rom/programming.h"

namespace tool {

struct UpgradeArguments {
    Programming how;
    Sources sources;
    bool all = false;
    unsigned jobs = 0; ///< so many at a time; 0: all
};

/// Upgrades all cameras at once.
ExitCode run_batch(Console& console, const Arguments& arguments, const UpgradeArguments& wanted);

} // namespace tool
