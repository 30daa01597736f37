// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera.h"

#include <nyxus/memory.h>
#include <cstdint>
#include <string>
#include <vector>

namespace tool {

/// Reads a part of the external ROM's first 64 KiB, as a phase of the display. By 512 bytes where
/// the camera can, which takes a fraction of the transfers, otherwise by 8 or 32.
std::vector<uint8_t> read_rom(Console& console, Camera& camera, const std::string& phase,
                              uint32_t address, uint32_t size);

/// Whether that is by 512 bytes, as long as the camera answers well; and what is read so before it
/// is checked.
bool can_read_wide(Camera& camera);
inline constexpr uint32_t kWideChunk = sizeof(NyWrapper512::data);
inline constexpr uint32_t kWideSlice = 4096;

} // namespace tool
