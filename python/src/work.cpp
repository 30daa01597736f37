// SPDX-License-Identifier: Apache-2.0
#include "work.h"

#include <csignal>
#include <exception>
#include <thread>

namespace nyxus::python {

namespace {

/// Signals are for the interpreter's threads; the one that works inherits a mask without them.
class NoSignals {
public:
    NoSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~NoSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

private:
    sigset_t before_;
};

std::thread start(const std::function<void()>& work)
{
    const NoSignals mask;
    return std::thread(work);
}

std::string repr(const engine::Event& event)
{
    const auto word = [](py::object value) {
        return py::str(value.attr("value")).cast<std::string>();
    };
    std::string text = "<nyxus.Event " + word(py::cast(event.kind));
    if (event.kind <= engine::Event::Kind::kAbandoned ||
        event.kind == engine::Event::Kind::kReadAgain)
        text += " " + word(py::cast(event.phase));
    if (event.kind == engine::Event::Kind::kOutlook)
        text += " " + word(py::cast(event.rom));
    if (event.total > 0)
        text += " " + std::to_string(event.done) + "/" + std::to_string(event.total);
    return text + (event.text.empty() ? "" : " " + event.text) + ">";
}

} // namespace

Work::Work(const py::object& stop)
{
    if (!stop.is_none()) {
        forwarded_.emplace(
            stop.cast<Stop&>().token(),
            std::function<void()>([source = soon]() mutable { source.request_stop(); }));
    }
}

void Work::post(std::function<void()> call, bool is_urgent)
{
    const std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
    has_urgent_ = has_urgent_ || is_urgent;
    if (is_urgent)
        changed_.notify_one();
}

void Work::run(const std::function<void()>& work)
{
    std::exception_ptr failure;
    std::thread thread = start([&] {
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        const std::lock_guard lock(mutex_);
        is_over_ = true;
        changed_.notify_one();
    });
    serve();
    {
        const WithoutLock unlocked;
        thread.join();
    }
    if (failure)
        std::rethrow_exception(failure);
}

void Work::serve()
{
    for (Calls calls = wait(); !calls.empty(); calls = wait()) {
        for (const auto& call : calls) {
            try {
                if (call && !interrupted)
                    call();
            } catch (py::error_already_set& error) {
                interrupt(std::move(error));
            } catch (const std::exception& error) { // what pybind11 has to say
                PyErr_SetString(PyExc_RuntimeError, error.what());
                interrupt(py::error_already_set());
            }
        }
        if (PyErr_CheckSignals() != 0)
            interrupt(py::error_already_set());
    }
}

/// What is to be done next: an empty call now and then, nothing when the work is over.
Work::Calls Work::wait()
{
    constexpr std::chrono::milliseconds kSignals{50};
    const WithoutLock unlocked;
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kSignals, [this] { return has_urgent_ || is_over_; });
    if (calls_.empty() && !is_over_)
        return {nullptr};
    has_urgent_ = false;
    return std::exchange(calls_, {});
}

void Work::interrupt(py::error_already_set error)
{
    std::stop_source source = interrupted ? at_once : soon;
    if (!interrupted)
        interrupted.emplace(std::move(error));
    source.request_stop();
}

Clock::time_point deadline_after(double timeout_s)
{
    constexpr double kEver_s = 1e9;
    const double seconds = timeout_s > 0 ? std::min(timeout_s, kEver_s) : 0; // also of NaN
    return Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

void add_work(py::module_& module)
{
    py::class_<Stop, std::shared_ptr<Stop>>(module, "Stop")
        .def(py::init<>())
        .def("request", &Stop::request)
        .def_property_readonly("requested", &Stop::requested);

    using engine::Event;
    py::class_<Event>(module, "Event")
        .def_readonly("kind", &Event::kind)
        .def_readonly("phase", &Event::phase)
        .def_readonly("done", &Event::done)
        .def_readonly("total", &Event::total)
        .def_readonly("seconds", &Event::seconds)
        .def_readonly("rom", &Event::rom)
        .def_readonly("stop_waits", &Event::stop_waits)
        .def_readonly("text", &Event::text)
        .def_readonly("version", &Event::version)
        .def_property_readonly("error", [](const Event& event) { return error_of(event.status); })
        .def("__repr__", repr);
}

} // namespace nyxus::python
