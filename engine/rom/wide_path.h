// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/memory.h>

#include "exchange.h"

namespace nyxus::engine {

inline constexpr uint32_t kWideChunk = sizeof(NyWrapper512::data);
/// What is read by 512 bytes before it is checked.
inline constexpr uint32_t kWideSlice = 4096;

/// Reads a slice by 512 bytes; a failure does not say that the narrow path fails, too.
Status read_wide(const Reading& reading, uint32_t address, std::span<uint8_t> out);

} // namespace nyxus::engine
