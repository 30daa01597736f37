// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "faults/fault_plan.h"

#include <array>
#include <span>
#include <string_view>

namespace sim {

enum class Strikes { kTransfers, kTransfersAndFrames, kFrames, kRom, kRomStatus, kAnything };

/// What a fault may do, and what may be said about it.
struct EffectWord {
    std::string_view name;
    Effect effect;
    Strikes strikes;
    std::array<std::string_view, 3> settings; ///< that it takes
    std::string_view required;                ///< the one that it cannot do without
};

std::span<const EffectWord> effect_words();

} // namespace sim
