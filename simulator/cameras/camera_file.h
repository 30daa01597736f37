// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"
#include "description/kinds.h"
#include "faults/fault_plan.h"

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// A camera, and what goes wrong with it by itself.
struct CameraDescription : CameraModel {
    FaultPlan faults = {};
};

/// A camera description as in the files next to this one. `file` names it in messages, and the
/// camera that has no name of its own. Throws DescriptionError.
CameraDescription parse_camera_file(std::string_view text, const std::string& file);
/// The same from a file. Throws DescriptionError.
CameraDescription read_camera_file(const std::string& path);

/// Lists of parts: tables [[flash]] or [[eeprom]]. Throws DescriptionError.
std::vector<FlashPart> parse_flash_parts(std::string_view text, const std::string& file);
std::vector<EepromPart> parse_eeprom_parts(std::string_view text, const std::string& file);

} // namespace sim
