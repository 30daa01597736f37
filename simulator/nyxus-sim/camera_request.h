// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cameras/camera_file.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace sim {

/// Something that the user can put right; the text says what.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One camera of the command line: MODEL-OR-FILE[,serial=TEXT][,bus=N][,rom=FILE][,blank]
///     [,driver=uvcvideo]
struct CameraRequest {
    std::shared_ptr<const CameraDescription> model;
    std::string serial;
    unsigned bus = 1;
    std::string rom_file; ///< empty: contents are not kept
    bool blank = false;   ///< start with an erased ROM instead of factory contents
    bool has_kernel_driver = false;
};

/// Throws UsageError.
CameraRequest parse_camera(const std::string& text);
/// The cameras of one run: those asked for, or one of the first model; `rom_files` belong to them
/// in order. Throws UsageError.
std::vector<CameraRequest> parse_cameras(const std::vector<std::string>& texts,
                                         const std::vector<std::string>& rom_files);
/// A shipped model by its name, or the one that a description file holds: then `text` has a '/' or
/// ends in .toml. Throws DescriptionError that says where the file is wrong, or UsageError that
/// names the nearest model.
std::shared_ptr<const CameraDescription> model_named(const std::string& text);

} // namespace sim
