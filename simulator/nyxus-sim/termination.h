// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <functional>

namespace sim {

/// SIGINT, SIGTERM and SIGHUP as a wish to end in order. Make it before any thread starts.
class Termination {
public:
    Termination();
    ~Termination();
    Termination(const Termination&) = delete;
    Termination& operator=(const Termination&) = delete;

    /// Until one of them comes, or `is_over`, asked a few times per second, says so.
    void wait(const std::function<bool()>& is_over) const;

private:
    sigset_t awaited_{};
    sigset_t original_{};
};

} // namespace sim
