// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "arguments.h"
#include "events.h"
#include "progress.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace tool {

/// One camera of a batch.
struct Job {
    enum class State { kWaiting, kRunning, kEnded };
    using Clock = std::chrono::steady_clock;

    CameraLabel camera;
    State state = State::kWaiting;
    Progress progress; ///< of the phase that it is in; no phase yet: ""
    Result result;     ///< valid once it has ended
    Clock::time_point begun;
    Clock::time_point phase_begun;
    std::string advice; ///< a command to run next; "" for none
};

/// Shows how a batch gets on. The jobs are those of its maker, by their index.
class BatchView {
public:
    virtual ~BatchView() = default;
    /// A job has begun, entered a phase, or ended.
    virtual void changed(const Job& job) = 0;
    /// A line about a job, for standard error.
    void note(const Job& job, const std::string& line) { warn(job.camera.port + ": " + line); }
    /// A line about the whole, for standard error.
    virtual void warn(const std::string& line) = 0;
    /// About ten times a second.
    virtual void tick() = 0;
    virtual void finish(const Summary& summary) = 0;
};

/// A table that is redrawn in place on a terminal, plain lines elsewhere, or JSON lines. A quiet
/// one tells how each camera ended, and the summary.
std::unique_ptr<BatchView> make_batch_view(Display& display, const std::vector<Job>& jobs,
                                           bool json, bool quiet);

/// Counts what has ended.
Summary summarize(const std::vector<Job>& jobs);

} // namespace tool
