// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tool {

/// Why a serial number cannot be written into an MFi image; "" when it can. The image's texts have
/// a fixed length, and the library neither pads nor cuts.
std::string refuse_serial(std::span<const uint8_t> mfi_image, const std::string& serial);

/// Whether both of the image's texts are this serial number. After patching one they are, unless
/// the parts of the image overlap. The image is one that refuse_serial() let pass.
bool holds_serial(std::span<const uint8_t> mfi_image, const std::string& serial);

} // namespace tool
