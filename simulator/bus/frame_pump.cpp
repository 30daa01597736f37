// SPDX-License-Identifier: Apache-2.0
#include "bus/frame_pump.h"

#include <utility>

namespace sim {

FramePump::FramePump(std::recursive_mutex& mutex, std::function<std::optional<Time>()> next_due,
                     std::function<void()> on_due)
    : mutex_(mutex), next_due_(std::move(next_due)), on_due_(std::move(on_due))
{
}

FramePump::~FramePump()
{
    {
        const std::lock_guard lock(mutex_);
        closing_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

void FramePump::wake()
{
    if (!thread_.joinable())
        thread_ = std::thread([this] { run(); });
    changed_.notify_all();
}

void FramePump::run()
{
    std::unique_lock lock(mutex_);
    while (!closing_) {
        const std::optional<Time> due = next_due_();
        if (!due) {
            changed_.wait(lock);
        } else if (*due > std::chrono::steady_clock::now()) {
            changed_.wait_until(lock, *due);
        } else {
            on_due_();
        }
    }
}

} // namespace sim
