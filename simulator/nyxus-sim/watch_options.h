// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command.h"
#include "commands.h"

namespace sim {

void add_watch_options(command_line::Command& command, WatchArguments& arguments);

} // namespace sim
