// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

namespace sim {

struct Colour {
    uint8_t luma;
    uint8_t blue_difference;
    uint8_t red_difference;
};

struct Area {
    uint32_t x, y, width, height; ///< pixels
};

/// How the sensor reads its rows and columns out.
struct Orientation {
    bool flipped = false;  ///< upside down
    bool mirrored = false; ///< left to right
};

/// A picture in YUYV that is drawn on. Two neighbouring pixels share their chroma, so whole pairs
/// are coloured: x rounds down to an even column and the width up. What lies outside is clipped; a
/// buffer too small for the picture takes nothing.
class Canvas {
public:
    Canvas(uint32_t width, uint32_t height, std::span<uint8_t> yuyv, Orientation orientation = {});

    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }
    void fill(Area area, Colour colour);

private:
    uint32_t width_;
    uint32_t height_;
    std::span<uint8_t> yuyv_;
    Orientation orientation_;
};

} // namespace sim
