// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "description/kinds.h"
#include "faults/fault_plan.h"

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Tables [[fault]], as the manual describes them. `name`: of the file, for messages. Throws
/// DescriptionError.
FaultPlan parse_faults(std::string_view text, const std::string& name);
/// What somebody has typed: "stall unit=6 count=3-5 times=1", or all of it as TOML. Ranges may be
/// written as FROM-TO, and texts without quotes. A mistake shows when it is parsed.
std::string fault_text(const std::vector<std::string>& words);
/// The text of a fault file; of one in JSON it says on standard error that this is the older way.
/// Throws DescriptionError when it cannot be read.
std::string read_fault_text(const std::string& path);

} // namespace sim
