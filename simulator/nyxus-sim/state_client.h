// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace sim {

/// Where a simulation tells its programs that its state is to be had.
inline constexpr char kSocketVariable[] = "NYXUS_SIM_SOCKET";

/// Asks the simulation that listens at `path`, or the one that this program runs in when it is
/// empty. Throws std::runtime_error with the answer's error, too.
nlohmann::ordered_json ask_simulation(const std::string& path,
                                      const nlohmann::ordered_json& request);

} // namespace sim
