// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace sim {

/// What is wrong with a description: a line per mistake, each with file, line and column.
struct DescriptionError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

} // namespace sim
