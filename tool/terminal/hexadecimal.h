// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tool {

/// "4E 59 00"
std::string bytes_text(std::span<const uint8_t> bytes);
/// Lines of 16 bytes each, with their addresses and characters; lines that repeat are left out.
std::string hexadecimal(std::span<const uint8_t> bytes, uint32_t address);

} // namespace tool
