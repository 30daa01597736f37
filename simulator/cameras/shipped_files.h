// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string_view>

namespace sim {

struct ShippedFile {
    std::string_view name; ///< such as "rowan-spi.toml"
    std::string_view text;
};

/// Generated from the *.toml files of this folder when the simulator is built.
extern const std::span<const ShippedFile> kCameraFiles;
extern const ShippedFile kFlashPartsFile;
extern const ShippedFile kEepromPartsFile;

} // namespace sim
