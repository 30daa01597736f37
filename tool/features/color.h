// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "terminal/value.h"

namespace tool {

/// As the on-screen display has it: Y, Cb and Cr after ITU-R BT.601, 16 to 235 and 16 to 240.
using Color = std::array<uint8_t, 3>;

/// "white", "#FFFFFF", "FFFFFF", or the three numbers themselves: "235,128,128".
std::optional<Color> parse_color(const std::string& text);
std::string refuse_color(const std::string& text);

/// Shown as "#FFFFFF"; JSON has the three numbers, too.
Value value_of(const Color& color);

} // namespace tool
