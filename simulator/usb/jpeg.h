// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace sim {

/// One complete JPEG file of a picture in YUYV, which has width * height * 2 bytes.
std::vector<uint8_t> encode_jpeg(uint32_t width, uint32_t height, std::span<const uint8_t> yuyv);

} // namespace sim
