// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/model.h"

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Something that the user can put right; the text says what.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One camera of the command line: MODEL[,serial=TEXT][,bus=N][,rom=FILE][,blank]
struct CameraRequest {
    const CameraModel* model = nullptr;
    std::string serial;
    unsigned bus = 1;
    std::string rom_file; ///< empty: contents are not kept
    bool blank = false;   ///< start with an erased ROM instead of factory contents
};

/// Throws UsageError.
CameraRequest parse_camera(const std::string& text);
/// The cameras of one run: those asked for, or one of the first model; `rom_files` belong to them
/// in order. Throws UsageError.
std::vector<CameraRequest> parse_cameras(const std::vector<std::string>& texts,
                                         const std::vector<std::string>& rom_files);
/// Throws UsageError that names the nearest model and lists all.
const CameraModel& model_named(std::string_view name);

} // namespace sim
