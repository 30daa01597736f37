// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "rom/upgrade.h"
#include "terminal/display.h"

namespace tool {

/// One camera of a batch.
struct Job {
    enum class State { kWaiting, kRunning, kEnded };

    State state = State::kWaiting;
    const engine::Images* images = nullptr; ///< the camera's; nullptr until they are chosen
    std::string label;                      ///< in columns as wide as those of the others
    Progress progress;
    Result result; ///< its camera; all else is valid once it has ended

    bool has_succeeded() const
    {
        return result.outcome == Outcome::kUpgraded || result.outcome == Outcome::kUpToDate;
    }
    /// The job in a table.
    TableRow row() const;
};

/// Fills the labels in.
void label(std::vector<Job>& jobs);
/// What the ROM holds, and the command that goes on with the camera, if any.
std::string state_and_advice(const Job& job, const Arguments& arguments,
                             const UpgradeArguments& wanted);

} // namespace tool
