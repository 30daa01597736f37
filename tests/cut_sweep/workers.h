// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace sweep {

/// What a worker tells: small enough for a pipe to carry it in one piece.
struct Record {
    uint32_t job = 0;
    uint32_t task = 0;
    uint8_t ending = 0;
    bool flagged = false;
    float milliseconds = 0;
    char text[160] = {};
};

/// Consecutive tasks for one process. Processes, because what the library abandons with a camera
/// that has gone is never freed, and because a hang or a crash shall cost one task only.
struct Job {
    uint32_t first = 0;
    uint32_t end = 0;
    /// Does one task; false when the next one wants a fresh process.
    using Run = std::function<bool(uint32_t task, Record& record)>;
    /// Makes it, in its own process.
    std::function<Run()> start;
};

/// Runs the jobs in so many processes; `report` hears of each task in this one. A task that kills
/// its process twice, or takes longer than the limit, is reported with `crash_ending`. Returns the
/// number of tasks that killed theirs once.
size_t run_jobs(const std::vector<Job>& jobs, unsigned processes, unsigned limit_s,
                uint8_t crash_ending, const std::function<void(const Record& record)>& report);

} // namespace sweep
