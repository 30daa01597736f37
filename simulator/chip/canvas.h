// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

namespace sim {

/// A picture in YUYV, of an even width, as somebody else has it.
struct View {
    uint32_t width = 0;
    uint32_t height = 0;
    std::span<const uint8_t> yuyv;
};

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

    bool operator==(const Orientation&) const = default;
};

/// What the host wants of the picture: each from -1 to 1, and 0 as delivered.
struct PictureSettings {
    double brightness = 0;
    double contrast = 0;
    double saturation = 0;
    double hue = 0;
    double gain = 0;
    double warmth = 0;
    double zoom = 1;     ///< into the middle
    double exposure = 1; ///< times the light
    double gamma = 1;
    double pan = 0;          ///< to where the zoom goes instead: 1 is the right edge
    double tilt = 0;         ///< likewise: 1 is the upper edge
    bool is_covered = false; ///< black

    Colour shown(const Colour& seen) const;
    bool operator==(const PictureSettings&) const = default;
};

/// A picture in YUYV that is drawn on. Two neighbouring pixels share their chroma, so whole pairs
/// are coloured: x rounds down to an even column and the width up. What lies outside is clipped; a
/// buffer too small for the picture takes nothing.
class Canvas {
public:
    Canvas(uint32_t width, uint32_t height, std::span<uint8_t> yuyv, Orientation orientation = {},
           const PictureSettings& settings = {});

    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }
    void fill(Area area, Colour colour);
    /// Fills the canvas with the middle of another picture, of which sides or top and bottom are
    /// cut off where its shape differs.
    void show(const View& seen);

private:
    Area zoomed(const Area& area) const;

    uint32_t width_;
    uint32_t height_;
    std::span<uint8_t> yuyv_;
    Orientation orientation_;
    PictureSettings settings_;
    bool is_adjusted_;
};

} // namespace sim
