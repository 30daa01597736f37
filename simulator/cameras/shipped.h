// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"

#include <span>
#include <string_view>

namespace sim {

// The cameras and parts that come with the simulator. Their files are built into the program.

/// The first is the one that is used when none is named.
std::span<const CameraModel> models();
/// nullptr when there is none of that name.
const CameraModel* find_model(std::string_view name);
/// The description of a shipped model as it was written; empty when there is none of that name.
std::string_view model_file(std::string_view name);

std::span<const FlashPart> flash_parts();
std::span<const EepromPart> eeprom_parts();

} // namespace sim
