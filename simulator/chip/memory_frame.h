// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

/// How the vendor unit's memory controls are laid out.
namespace sim::memory_frame {

// Flags and length, address (big-endian), data.
inline constexpr size_t kHeaderBytes = 3;
inline constexpr uint8_t kWrite = 0x80;
inline constexpr uint8_t kErase = 0x40;
inline constexpr uint8_t kOlderRomWrite = 0xA0;
inline constexpr uint8_t kLengthBits = 0x3F;
inline constexpr uint8_t kOlderLengthBits = 0x1F;
inline constexpr uint8_t kVersionRequest = 0x04; // on the sensor control, at address FFFF

// The 512-byte control: length and address (big-endian), data; it names no direction.
inline constexpr size_t kHeaderBytes512 = 4;
inline constexpr size_t kDataBytes512 = 512;

inline uint16_t be16(std::span<const uint8_t> bytes)
{
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

inline size_t length_512(std::span<const uint8_t> frame)
{
    return std::min<size_t>(be16(frame), kDataBytes512);
}

inline bool is_version_request(std::span<const uint8_t> frame)
{
    return frame[0] == kVersionRequest && be16(frame.subspan(1)) == 0xFFFF;
}

} // namespace sim::memory_frame
