// SPDX-License-Identifier: Apache-2.0
#include "bus/alarms.h"

#include <algorithm>
#include <utility>

namespace sim {

void Alarms::set(uint64_t delay_us, Passes passes, Action action)
{
    const std::lock_guard lock(mutex_);
    const bool waits = passes == Passes::kWhileWaiting;
    const bool real = dynamic_cast<RealClock*>(&clock_) != nullptr;
    Alarm alarm{clock_.now_us() + delay_us, std::nullopt, std::move(action)};
    if (waits || real)
        alarm.due = std::chrono::steady_clock::now() + std::chrono::microseconds(delay_us);
    alarms_.push_back(std::move(alarm));
    if (!thread_.joinable() && !stopping_)
        thread_ = std::thread([this] { work(); });
    changed_.notify_all();
}

void Alarms::run_due()
{
    while (const std::optional<Alarm> alarm = take_due())
        alarm->action(alarm->due_us);
}

void Alarms::stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

// The earliest one on the clock first. One that the machine's time has made due brings the clock
// up to it.
std::optional<Alarms::Alarm> Alarms::take_due()
{
    const std::lock_guard lock(mutex_);
    const uint64_t now_us = clock_.now_us();
    const MachineTime now = std::chrono::steady_clock::now();
    const auto is_due = [&](const Alarm& alarm) {
        return alarm.due_us <= now_us || (alarm.due && *alarm.due <= now);
    };
    auto first = alarms_.end();
    for (auto alarm = alarms_.begin(); alarm != alarms_.end(); ++alarm) {
        if (is_due(*alarm) && (first == alarms_.end() || alarm->due_us < first->due_us))
            first = alarm;
    }
    if (first == alarms_.end() || stopping_)
        return std::nullopt;
    if (first->due_us > now_us)
        clock_.advance_us(first->due_us - now_us);
    std::optional<Alarm> taken = std::move(*first);
    alarms_.erase(first);
    return taken;
}

void Alarms::work()
{
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        std::optional<MachineTime> due;
        for (const Alarm& alarm : alarms_) {
            if (alarm.due && (!due || *alarm.due < *due))
                due = alarm.due;
        }
        if (!due) {
            changed_.wait(lock);
        } else if (std::chrono::steady_clock::now() < *due) {
            changed_.wait_until(lock, *due);
        } else {
            lock.unlock();
            run_due();
            lock.lock();
        }
    }
}

} // namespace sim
