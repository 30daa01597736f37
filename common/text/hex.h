// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace text {

/// "4E58", or "4E 58" with a separator.
std::string hex(std::span<const uint8_t> bytes, std::string_view separator = "");

/// The bytes that hex() has written without a separator; nullopt for any other text.
std::optional<std::vector<uint8_t>> bytes_from_hex(std::string_view text);

} // namespace text
