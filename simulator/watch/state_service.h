// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"

#include <string>
#include <vector>

namespace sim {

/// Answers questions about the cameras and acts on them. Requests and replies are JSON objects, one
/// a line:
///
///   {"command": "state", "camera": "A1", "registers": [2816, 3071], "rom": true}
///   {"command": "touch", "camera": "2", "value": 1}      and so on for the other acts
///
/// A camera is named by its serial number or its place on the command line; without one, the state
/// is that of all, and an act needs that there is only one. The reply is {"ok": true, ...} or
/// {"ok": false, "error": "..."}. Thread-safe.
class StateService {
public:
    StateService(Bed& bed, const std::vector<PluggedCamera*>& cameras)
        : bed_(bed), cameras_(cameras)
    {
    }

    /// Never throws for what it is asked.
    std::string answer(const std::string& request);

private:
    Bed& bed_;
    const std::vector<PluggedCamera*>& cameras_;
};

} // namespace sim
