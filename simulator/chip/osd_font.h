// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

namespace sim {

inline constexpr uint32_t kGlyphColumns = 5;
inline constexpr uint32_t kGlyphRows = 7;

/// Rows of a character from top to bottom; bit 4 is the leftmost of five dots. What is not
/// printable ASCII shows as a full box.
const std::array<uint8_t, kGlyphRows>& glyph(uint8_t character);

} // namespace sim
