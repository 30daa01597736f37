// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace nyxus::simulator {

/// Why this process does not run on a simulated bus; empty when it does.
std::string why_outside();

} // namespace nyxus::simulator
