// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "description/error.h"
#include "faults/fault_plan.h"

#include <string>
#include <string_view>

namespace sim {

/// Tables [[fault]], as the manual describes them. `name`: of the file, for messages. Throws
/// DescriptionError.
FaultPlan parse_faults(std::string_view text, const std::string& name);
/// The text of a fault file; of one in JSON it says on standard error that this is the older way.
/// Throws DescriptionError when it cannot be read.
std::string read_fault_text(const std::string& path);

} // namespace sim
