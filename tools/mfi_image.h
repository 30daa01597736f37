// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tool {

/// Why a serial number cannot be written into an MFi image; "" when it can. The image's texts have
/// a fixed length, and the library neither pads nor cuts.
std::string refuse_serial(std::span<const uint8_t> mfi_image, const std::string& serial);

} // namespace tool
