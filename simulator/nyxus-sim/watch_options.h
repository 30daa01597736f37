// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands.h"

#include <CLI/CLI.hpp>

namespace sim {

void add_watch_options(CLI::App* command, WatchArguments& arguments);

} // namespace sim
