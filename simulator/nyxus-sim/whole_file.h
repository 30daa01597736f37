// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sim {

/// nullopt when there is no such file. Throws std::runtime_error when it cannot be read.
std::optional<std::vector<uint8_t>> read_file(const std::string& path);
/// The file has either its old contents or all of the new ones. Throws std::runtime_error.
void write_file(const std::string& path, std::span<const uint8_t> bytes);

} // namespace sim
