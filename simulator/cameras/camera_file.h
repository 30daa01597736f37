// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// What is wrong with a description: a line per mistake, each with file, line and column.
struct CameraFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A camera description as in the files next to this one. `file` names it in messages, and the
/// camera that has no name of its own. Throws CameraFileError.
CameraModel parse_camera_file(std::string_view text, const std::string& file);
/// The same from a file. Throws CameraFileError.
CameraModel read_camera_file(const std::string& path);

/// Lists of parts: tables [[flash]] or [[eeprom]]. Throws CameraFileError.
std::vector<FlashPart> parse_flash_parts(std::string_view text, const std::string& file);
std::vector<EepromPart> parse_eeprom_parts(std::string_view text, const std::string& file);

} // namespace sim
