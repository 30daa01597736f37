// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace sim {

/// Answers questions about the cameras and acts on them. Requests and replies are JSON objects, one
/// a line:
///
///   {"command": "state", "camera": "A1", "registers": [2816, 3071], "rom": true}
///   {"command": "touch", "camera": "2", "value": 1}      and so on for the other acts
///   {"command": "fault", "faults": "[[fault]] ..."}      TOML; "clear" ends them all
///
/// A camera is named by its serial number or its place on the command line; without one, the state
/// is that of all, faults concern all, and another act needs that there is only one. The reply is
/// {"ok": true, ...} or
/// {"ok": false, "error": "..."}. Thread-safe.
class StateService {
public:
    using OnAct = std::function<void(const std::string& camera, const std::string& act)>;

    /// `on_act` is told of each act before it happens; of no camera: "".
    StateService(TestBed& bed, const std::vector<PluggedCamera*>& cameras, OnAct on_act)
        : bed_(bed), cameras_(cameras), on_act_(std::move(on_act))
    {
    }

    /// Never throws for what it is asked.
    std::string answer(const std::string& request);

private:
    nlohmann::ordered_json answer_to(const std::string& text);
    void act(const std::string& name, const nlohmann::ordered_json& request);
    void add_faults(const nlohmann::ordered_json& request);

    TestBed& bed_;
    const std::vector<PluggedCamera*>& cameras_;
    OnAct on_act_;
};

} // namespace sim
