// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

namespace sim {

// The extension units.
inline constexpr uint8_t kVendorUnit = 6;
inline constexpr uint8_t kH264Unit = 12;

// Request codes of a control.
inline constexpr uint8_t kSetCur = 0x01;
inline constexpr uint8_t kGetCur = 0x81;
inline constexpr uint8_t kGetMin = 0x82;
inline constexpr uint8_t kGetMax = 0x83;
inline constexpr uint8_t kGetRes = 0x84;
inline constexpr uint8_t kGetLen = 0x85;
inline constexpr uint8_t kGetInfo = 0x86;
inline constexpr uint8_t kGetDef = 0x87;

// Answers to GET_INFO.
inline constexpr uint8_t kInfoGet = 0x01;
inline constexpr uint8_t kInfoSet = 0x02;
inline constexpr uint8_t kInfoDisabled = 0x04; ///< an automatic has it
inline constexpr uint8_t kInfoGetAndSet = kInfoGet | kInfoSet;

/// Answer of an extension-unit request that the firmware does not know.
inline constexpr int kStall = -1;

/// Copies as much of `answer` as there is room for; returns the bytes moved.
inline int put_answer(std::span<const uint8_t> answer, std::span<uint8_t> room)
{
    const size_t moved = std::min(answer.size(), room.size());
    std::copy_n(answer.begin(), moved, room.begin());
    return static_cast<int>(moved);
}

} // namespace sim
