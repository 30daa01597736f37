// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/arguments.h"
#include "terminal/display.h"

#include <nyxus/engine/upgrade.hpp>

namespace tool {

/// One camera of a batch.
struct Job {
    enum class State { kWaiting, kRunning, kEnded };

    State state = State::kWaiting;
    const engine::Images* images = nullptr; ///< the camera's; nullptr until they are chosen
    std::string label;                      ///< in columns as wide as those of the others
    Progress progress;                      ///< of the phase that it is in; no phase yet: ""
    Result result;                          ///< its camera; all else is valid once it has ended
    std::string advice;                     ///< a command to run next; "" for none
};

/// Fills the labels in.
void label(std::vector<Job>& jobs);

/// The job in a table.
TableRow row_of(const Job& job);
bool has_succeeded(const Job& job);
/// "upgraded: 22.6 KiB in 1.0 s"
std::string result_text(const Result& result);
/// What the ROM holds, and what to do.
std::string state_and_advice(const Job& job);
/// The command that goes on with the camera; "" for none.
std::string advice(const Result& result, const Arguments& arguments);

/// Counts what has ended.
Summary summarize(const std::vector<Job>& jobs);
std::string text_of(const Summary& summary);

} // namespace tool
