// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace text {

/// "010" becomes "10", which parsers that know octal numbers take for what people mean by it. Texts
/// that hold anything but digits behind an optional '+', such as "0x0A", stay as they are.
std::string without_leading_zeros(std::string text);

/// The number that the whole text is: decimal whatever zeros are in front, or hexadecimal behind
/// 0x. nullopt when it is none, or beyond `most`.
std::optional<uint64_t> parse_number(std::string_view text, uint64_t most = UINT64_MAX);

} // namespace text
