// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace sim {

/// The thread that makes frames appear in time. It starts at the first wake().
class FramePump {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Both hooks run under `mutex`. `next_due` tells when to call `on_due`; nothing: it asks again
    /// after the next wake().
    FramePump(std::recursive_mutex& mutex, std::function<std::optional<Time>()> next_due,
              std::function<void()> on_due);
    ~FramePump();
    FramePump(const FramePump&) = delete;
    FramePump& operator=(const FramePump&) = delete;

    /// Something has changed. Call it under the mutex, held once or more.
    void wake();

private:
    void run();

    std::recursive_mutex& mutex_;
    std::function<std::optional<Time>()> next_due_;
    std::function<void()> on_due_;
    std::condition_variable_any changed_;
    bool closing_ = false;
    std::thread thread_;
};

} // namespace sim
