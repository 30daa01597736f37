// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "description/kinds.h"
#include "faults/fault_plan.h"

#include <array>
#include <span>
#include <string_view>

namespace sim {

inline constexpr Tables kFaultTables{1000};

// The keys of a fault.

std::span<const Field<PlannedFault>> fault_fields();
/// Those of its table 'when'.
std::span<const Field<Trigger>> trigger_fields();

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
