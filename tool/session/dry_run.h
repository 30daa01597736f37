// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/arguments.h"
#include "session/camera.h"
#include "terminal/value.h"

#include <nyxus/engine/plan.hpp>
#include <string>

namespace tool {

using engine::Cost;
using engine::pin_change;
using engine::register_change;
using engine::register_read;
using engine::register_write;

/// What an estimate leaves out that has to do with flash.
inline constexpr char kFlashTime[] =
    "and the time that the flash takes to erase and program itself";

/// Ends a dry run: tells what would be done (a line, and its JSON), that nothing was written, and
/// what it would cost. `more` is what the estimate leaves out.
void print_dry_run(Console& console, const Arguments& arguments, Camera& camera,
                   const std::string& line, Members values, const Cost& cost,
                   const std::string& more = "");

} // namespace tool
