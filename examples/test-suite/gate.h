// SPDX-License-Identifier: Apache-2.0
// The application: the cameras of a gate, each of which has to be known by its serial number and to
// have a recent firmware.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace gate {

constexpr std::uint16_t kOldestFirmware = 0x0200;

enum class Verdict { kFit, kUnknown, kOutdated, kBroken };

struct Finding {
    std::string serial;
    Verdict verdict = Verdict::kBroken;
    std::string reason; ///< of Verdict::kBroken
};

/// Looks at every camera on the bus.
std::vector<Finding> inspect(const std::set<std::string>& known_serials);

/// "A1: fit", a line for each.
std::string report(const std::vector<Finding>& findings);

} // namespace gate
