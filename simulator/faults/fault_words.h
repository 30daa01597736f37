// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "faults/fault_plan.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace sim {

/// The words of the fault language.

inline constexpr std::string_view kSettingKeys[] = {"bytes",     "ms",        "mask",
                                                    "announced", "replug_ms", "after"};
inline constexpr std::string_view kFaultKeys[] = {
    "when", "do", "times", "seed", "bytes", "ms", "mask", "announced", "replug_ms", "after"};
inline constexpr std::string_view kTransferTriggers[] = {"transfer", "unit", "selector", "request"};
inline constexpr std::string_view kRomTriggers[] = {"rom_address"};
inline constexpr std::string_view kFrameTriggers[] = {"frame"};
inline constexpr std::string_view kTriggerKeys[] = {"transfer",    "unit",  "selector", "request",
                                                    "rom_address", "frame", "time_ms",  "count",
                                                    "probability", "camera"};

enum class Strikes { kTransfers, kTransfersAndFrames, kFrames, kRom, kRomStatus, kAnything };

struct EffectWord {
    std::string_view name;
    Effect effect;
    Strikes strikes;
    std::array<std::string_view, 3> settings; ///< that it takes
    std::string_view required;                ///< the one that it cannot do without
};

std::span<const std::string_view> effect_names();
/// The name has to be one of them.
const EffectWord& effect_named(std::string_view name);

std::span<const std::string_view> request_names();
uint8_t request_named(std::string_view name);

} // namespace sim
