// SPDX-License-Identifier: Apache-2.0
// What the firmware's version record says, and what hangs on it.
#pragma once

#include <cstdint>

// clang-format off
static constexpr uint16_t kXuPrefix        = 0x5558;   // "XU": the record is one
static constexpr uint16_t kXuPrefixBlocks  = 0x4646;   // "FF": every ROM access selects its block first
static constexpr uint16_t kXuMemoryTag     = 0x4D45;   // "EM": memory extension
static constexpr uint16_t kXuVersionStatus = 0x0003;   // device status, flash info and read-ID are controls
// clang-format on
