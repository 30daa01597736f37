// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "description/reader.h"
#include "faults/fault_plan.h"

#include <optional>
#include <string>

namespace sim {

/// What the key [[fault]] of a file holds. `owner`: the camera that the file describes, about which
/// all of them are.
FaultPlan read_fault_tables(const toml::key& key, const toml::node& node,
                            const std::optional<std::string>& owner, Mistakes& mistakes);

} // namespace sim
