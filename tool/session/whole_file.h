// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/arguments.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Files that commands read or replace as a whole; Failures tell why they cannot.
namespace tool {

/// See files::replace_file(). Not before there is something to write: an interrupt meanwhile leaves
/// the file as it was.
void write_file(const std::string& path, std::span<const uint8_t> bytes);

/// Refuses a name that write_file() cannot give contents to, before a camera is asked for them.
void refuse_impossible_target(const std::string& path);
/// The same where "-" is standard output, on which JSON has no room beside the contents.
void refuse_impossible_target(const std::string& path, const Arguments& arguments);

/// A file, or standard input ("-"), that has 1 to `most` bytes; `place`, such as "the EEPROM
/// window", has no room for more.
std::vector<uint8_t> read_file(const std::string& path, size_t most, const std::string& place);

} // namespace tool
