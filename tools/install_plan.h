// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "arguments.h"
#include "camera.h"

#include <cstdint>
#include <span>
#include <string>

// What --dry-run tells of an installation of the loaded images.
namespace tool {

/// `before` is what has been read of the ROM, perhaps nothing.
void print_install_plan(Console& console, const Arguments& arguments, Camera& camera, bool with_mfi,
                        std::span<const uint8_t> before);
/// The same when there is nothing to install, and why.
void print_nothing_to_do(Console& console, const Arguments& arguments, Camera& camera,
                         const std::string& why);

} // namespace tool
