// SPDX-License-Identifier: Apache-2.0
#include "bus/alarms.h"

#include <sys/prctl.h>

#include <algorithm>
#include <utility>

namespace sim {

void Alarms::set(uint64_t delay_us, Passes passes, Action action)
{
    const std::lock_guard lock(mutex_);
    Alarm alarm{clock_.now_us() + delay_us, std::nullopt, std::move(action)};
    if (passes != Passes::kOnTheClock || clock_.runs())
        alarm.due = std::chrono::steady_clock::now() + std::chrono::microseconds(delay_us);
    if (passes == Passes::kAtOnce) {
        alarm.due_us.reset();
        ++at_once_;
    }
    const bool is_next = alarm.due && (!next_due_ || *alarm.due < *next_due_);
    alarms_.push_back(std::move(alarm));
    if (!thread_.joinable() && !stopping_)
        thread_ = std::thread([this] { work(); });
    if (is_next)
        changed_.notify_all();
}

void Alarms::run_due()
{
    while (const std::optional<Alarm> alarm = take_due()) {
        alarm->action(alarm->due_us.value_or(0));
        if (!alarm->due_us) {
            const std::lock_guard lock(mutex_);
            --at_once_;
            changed_.notify_all();
        }
    }
}

void Alarms::settle()
{
    run_due();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return at_once_ == 0 || stopping_; });
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
        return (alarm.due_us && *alarm.due_us <= now_us) || (alarm.due && *alarm.due <= now);
    };
    auto first = alarms_.end();
    for (auto alarm = alarms_.begin(); alarm != alarms_.end(); ++alarm) {
        if (is_due(*alarm) && (first == alarms_.end() || alarm->due_us < first->due_us))
            first = alarm;
    }
    if (first == alarms_.end() || stopping_)
        return std::nullopt;
    if (first->due_us > now_us) // not of one that has no time on it
        clock_.advance_us(*first->due_us - now_us);
    std::optional<Alarm> taken = std::move(*first);
    alarms_.erase(first);
    return taken;
}

void Alarms::work()
{
    prctl(PR_SET_TIMERSLACK, 1UL); // a transfer takes microseconds; the usual slack is 50 of them
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        next_due_.reset();
        for (const Alarm& alarm : alarms_) {
            if (alarm.due && (!next_due_ || *alarm.due < *next_due_))
                next_due_ = alarm.due;
        }
        if (!next_due_) {
            changed_.wait(lock);
        } else if (std::chrono::steady_clock::now() < *next_due_) {
            changed_.wait_until(lock, MachineTime(*next_due_));
        } else {
            lock.unlock();
            run_due();
            lock.lock();
        }
    }
}

} // namespace sim
