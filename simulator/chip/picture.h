// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "canvas.h"

#include <cstdint>
#include <optional>
#include <span>

namespace sim {

/// What the sensor sees: eight colour bars, and below them a letter F at the left of a grey ramp
/// that brightens to the right, so that a person tells how the picture is turned.
void draw_test_pattern(Canvas& canvas);

/// The sensor numbers its frames in the picture: 32 cells of 4x4 pixels from the top left corner
/// to the right, bright for 1 and dark for 0, the most significant bit first.
void draw_frame_number(Canvas& canvas, uint32_t frame_number);

/// Reads that number back from a picture turned as given; nothing when the cells are not clear.
std::optional<uint32_t> read_frame_number(uint32_t width, uint32_t height,
                                          std::span<const uint8_t> yuyv, bool flipped,
                                          bool mirrored);

} // namespace sim
