// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Reading the external ROM, and looking at what it holds.
 */
#ifndef NYXUS_ENGINE_ROM_HPP
#define NYXUS_ENGINE_ROM_HPP

#include <nyxus/engine/camera.hpp>

namespace nyxus::engine {

/**
 * Reads a part of the first 64 KiB, which are all that a controller uses; kNotSupported beyond.
 * By 512 bytes where the camera can, which takes a fraction of the transfers, otherwise by 8 or 32.
 *
 * Blocks for up to a minute, without a limit when a connected camera does not answer.
 */
NYXUS_ENGINE_API Result<std::vector<uint8_t>> read_rom(Camera& camera, uint32_t address,
                                                       uint32_t size, const Caller& caller,
                                                       Phase phase = Phase::kReading);

/// Whether that is by 512 bytes, as long as the camera answers well. Blocks for a transfer.
NYXUS_ENGINE_API bool can_read_wide(Camera& camera);

/// Where two byte ranges differ, as far as both go.
struct Difference {
    size_t count = 0;
    std::vector<size_t> first_offsets; ///< at most kMostOffsets
    static constexpr size_t kMostOffsets = 5;
};
NYXUS_ENGINE_API Difference find_difference(Bytes a, Bytes b);

/// Nothing but 0xFF.
NYXUS_ENGINE_API bool is_blank(Bytes contents);

} // namespace nyxus::engine

#endif
