// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Reading the external ROM, and looking at what it holds.
 */
#ifndef NYXUS_ENGINE_ROM_HPP
#define NYXUS_ENGINE_ROM_HPP

#include <nyxus/engine/camera.hpp>

namespace nyxus::engine {

/// What the controller uses of its ROM at most, and addresses at a time.
inline constexpr uint32_t kRomBlock = 0x10000;

/// Whether the camera can be asked for the blocks of 64 KiB behind the first one.
NYXUS_ENGINE_API bool selects_blocks(const Camera& camera);
/// Bytes of the flash part or EEPROM, as far as that is known. A controller uses the first 64 KiB.
NYXUS_ENGINE_API uint32_t part_bytes(const Camera& camera);
/// Those that can be read: at least the first 64 KiB.
NYXUS_ENGINE_API uint32_t readable_bytes(const Camera& camera);

/**
 * Reads a part of the ROM; kNotSupported beyond readable_bytes(). By 512 bytes where the camera
 * can, which takes a fraction of the transfers, otherwise by 8 or 32.
 *
 * No exchange is believed that has not gone well: a refusal, a request or an answer that is short,
 * and, from a camera whose first answers have all repeated the address they were asked for, an
 * answer without it, are told (Event::Kind::kReadAgain) and tried again three times; then reading
 * by 512 bytes is given up, and any other has failed. kUnreliableReads where transfers go well and
 * their contents do not. The block is selected before each range.
 *
 * Blocks for up to a minute, without a limit when a connected camera does not answer.
 */
NYXUS_ENGINE_API Result<std::vector<uint8_t>> read_rom(Camera& camera, uint32_t address,
                                                       uint32_t size, const Caller& caller,
                                                       Phase phase = Phase::kReading);

/// Reads in the same way again what has been read, but by 8 or 32 bytes, and compares. What differs
/// is read anew until two readings are equal; kUnreliableReads if they never are. For what will be
/// the only copy. The phase is kReadingAgain.
NYXUS_ENGINE_API Status confirm_rom(Camera& camera, uint32_t address, std::vector<uint8_t>& bytes,
                                    const Caller& caller);
/// Both.
NYXUS_ENGINE_API Result<std::vector<uint8_t>> read_rom_twice(Camera& camera, uint32_t address,
                                                             uint32_t size, const Caller& caller);
/// What the ROM holds where something is expected; what differs is read again before it is
/// returned.
NYXUS_ENGINE_API Result<std::vector<uint8_t>> read_back(Camera& camera, uint32_t address,
                                                        Bytes expected, const Caller& caller,
                                                        Phase phase = Phase::kReading);

/// Whether read_rom() reads by 512 bytes, as long as the camera answers well. Blocks for a
/// transfer.
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
