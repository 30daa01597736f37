// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"
#include "description/kinds.h"

#include <span>
#include <string>

namespace sim {

// The keys of a camera description.

/// Where the picture is from.
struct SceneSource {
    std::string file;
    FrameSize raw_size; ///< 0 for a picture that tells its own
    bool numbers_frames = false;
};

/// In this order, so that a computed fallback may look at what stands above it.
std::span<const Field<CameraModel>> camera_fields();
std::span<const Field<CameraModel>> firmware_fields();
std::span<const Field<FrameFormat>> format_fields();
/// In the order of PictureControl.
std::span<const Field<CameraModel>> control_fields();
std::span<const Field<SceneSource>> picture_fields();
std::span<const Field<ControlRange>> range_fields();
std::span<const Field<FlashPart>> flash_fields();
std::span<const Field<EepromPart>> eeprom_fields();

} // namespace sim
