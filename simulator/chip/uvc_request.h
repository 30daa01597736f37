// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace sim {

// Request codes of a control of an extension unit.
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
inline constexpr uint8_t kInfoGetAndSet = kInfoGet | kInfoSet;

} // namespace sim
