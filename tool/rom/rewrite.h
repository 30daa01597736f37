// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "rom/programming.h"
#include "rom/range.h"

#include <span>

namespace tool {

/// Puts bytes into a part of the ROM and leaves the rest as it is, with all that an upgrade does to
/// be safe: a flash is erased and written anew. With --dry-run tells of it. Of a ROM with firmware,
/// in which the part lies; `operation`: what the journal calls it, `done`: what is said then.
ExitCode rewrite(Console& console, const Arguments& arguments, const std::string& operation,
                 const std::function<void(std::vector<uint8_t>& rom)>& patch,
                 const std::string& done);

} // namespace tool
