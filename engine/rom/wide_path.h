// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/memory.h>
#include <nyxus/engine/rom.hpp>
#include <span>

namespace nyxus::engine {

inline constexpr uint32_t kWideChunk = sizeof(NyWrapper512::data);
/// What is read by 512 bytes before it is checked.
inline constexpr uint32_t kWideSlice = 4096;

/// Reads a slice by 512 bytes; false when an answer is not what was asked for.
bool read_wide(Camera& camera, uint32_t address, std::span<uint8_t> out);

} // namespace nyxus::engine
