// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/clock.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace sim {

/// What happens by itself when its time has come. Thread-safe; set() may be called under any lock.
class Alarms {
public:
    /// What makes the time pass on a virtual clock. On the machine's there is no difference.
    enum class Passes {
        kOnTheClock,   ///< only the clock
        kWhileWaiting, ///< the same time of the machine too: a host that just waits sees it happen
        kAtOnce,       ///< the machine's time alone; whoever settles waits for it
    };
    /// Called without any lock with the time, on the clock, that has come.
    using Action = std::function<void(uint64_t due_us)>;

    explicit Alarms(Clock& clock) : clock_(clock) {}
    ~Alarms() { stop(); }
    Alarms(const Alarms&) = delete;
    Alarms& operator=(const Alarms&) = delete;

    uint64_t now_us() { return clock_.now_us(); }
    void set(uint64_t delay_us, Passes passes, Action action);
    /// Does what is due on the clock, and waits for what happens at once. To be called when a
    /// virtual clock has been advanced.
    void settle();
    /// What is under way ends, nothing else begins.
    void stop();

private:
    using MachineTime = std::chrono::steady_clock::time_point;
    struct Alarm {
        std::optional<uint64_t> due_us; ///< on the clock, if that counts
        std::optional<MachineTime> due; ///< on the machine's, if that does
        Action action;
    };

    void work();
    void run_due();
    std::optional<Alarm> take_due();

    Clock& clock_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Alarm> alarms_;
    std::optional<MachineTime> next_due_; ///< for which the thread waits
    size_t at_once_ = 0;                  ///< that have not happened to their end
    bool stopping_ = false;
    std::thread thread_; ///< from the first alarm on
};

} // namespace sim
