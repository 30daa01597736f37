// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <string>
#include <vector>

namespace sim {

/// Signals that a user sends to the program go through us. Make it before any thread starts.
class SignalRelay {
public:
    SignalRelay();
    ~SignalRelay();
    SignalRelay(const SignalRelay&) = delete;
    SignalRelay& operator=(const SignalRelay&) = delete;

    /// Runs the program, passes signals on to it, and returns its exit code: 128 + n when it died
    /// of signal n, 127 when there is no such program, 126 when it cannot be run.
    int run(const std::vector<std::string>& words) const;

private:
    int wait_for(pid_t child) const;

    sigset_t relayed_{};
    /// By us, when we began; libraries have ignored some of them since.
    sigset_t not_ignored_{};
    struct sigaction original_child_ {};
    sigset_t original_{};
};

/// How programs are let see the simulated bus: LD_PRELOAD for them. Throws std::runtime_error when
/// the client library is not where it belongs.
std::string preload_list(const std::string& bed_folder);

} // namespace sim
