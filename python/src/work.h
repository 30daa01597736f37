// SPDX-License-Identifier: Apache-2.0
// Work of the engine that takes its time. It runs on a thread of its own, so that this one stays
// open to signals and tells of events whatever the camera does.
#pragma once

#include "errors.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>

namespace nyxus::python {

/// How any thread asks work to stop: std::stop_source, as a class of Python.
class Stop {
public:
    void request() { source_.request_stop(); }
    bool requested() const { return source_.stop_requested(); }
    std::stop_token token() const { return source_.get_token(); }

private:
    std::stop_source source_;
};

/// What the interpreter's thread and the one that works share.
class Work {
public:
    /// `stop` is None or a Stop. The first interrupt asks `soon`, the second one `at_once`.
    explicit Work(const py::object& stop);

    const std::stop_source soon;
    const std::stop_source at_once;

    /// From the thread that works: done on the interpreter's thread, with its lock; at once, or
    /// with others within 50 ms, since waking that thread takes as long as a few transfers.
    void post(std::function<void()> call, bool is_urgent);

    /// Does the work and what it posts; returns when it is over. An exception of a posted call, or
    /// of a signal, asks for a stop and becomes `interrupted`.
    void run(const std::function<void()>& work);

    std::optional<py::error_already_set> interrupted;

private:
    using Calls = std::deque<std::function<void()>>;

    void serve();
    Calls wait();
    void interrupt(py::error_already_set error);

    std::optional<std::stop_callback<std::function<void()>>> forwarded_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Calls calls_;
    bool has_urgent_ = false;
    bool is_over_ = false;
};

/// Progress is not.
inline bool is_urgent(const engine::Event& event)
{
    return event.kind != engine::Event::Kind::kAdvances;
}

/// Work that tells `on_event` of its events, which is None or callable.
template <typename Function>
auto run(Work& work, const py::object& on_event, Function&& function)
{
    engine::Caller caller;
    caller.stop = work.soon.get_token();
    if (!on_event.is_none()) {
        caller.tell = [&](const engine::Event& event) {
            work.post([&on_event, event] { on_event(event); }, is_urgent(event));
        };
    }
    std::optional<decltype(function(caller))> result;
    work.run([&] { result.emplace(function(caller)); });
    return *std::move(result);
}

using Clock = std::chrono::steady_clock;
/// So many seconds from now; a negative number is none, and a very large one for ever.
Clock::time_point deadline_after(double timeout_s);

void add_work(py::module_& module);

} // namespace nyxus::python
