// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "description/kinds.h"
#include "faults/fault_plan.h"

#include <span>

namespace sim {

inline constexpr Tables kFaultTables{1000};

// The keys of a fault.

std::span<const Field<PlannedFault>> fault_fields();
/// Those of its table 'when'.
std::span<const Field<Trigger>> trigger_fields();

} // namespace sim
