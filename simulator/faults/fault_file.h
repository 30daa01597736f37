// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "faults/fault_plan.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace sim {

/// A mistake in a fault file; the text names file, line and fault and says what was expected.
struct FaultFileError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

/// A JSON list of faults, as the manual describes it. `name`: of the file, for messages. Throws
/// FaultFileError.
FaultPlan parse_faults(std::string_view text, const std::string& name);
/// The same from a file. Throws FaultFileError also when it cannot be read.
FaultPlan read_fault_file(const std::string& path);

} // namespace sim
