// SPDX-License-Identifier: Apache-2.0
#include <poll.h>
#include <sys/wait.h>
#include <cstring>
#include <list>

#include "helper.h"
#include "report/clock.h"
#include "report/phase_scope.h"
#include "text/format.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace {

constexpr int kTick_ms = 100;
/// A process that is still there so long after it was killed is held by the kernel.
constexpr int64_t kDying_us = 3'000'000;
constexpr int64_t kSecond_us = 1'000'000;

/// A camera while its helper runs.
struct Running {
    Running(size_t its_index, Helper its_helper) : index(its_index), helper(std::move(its_helper))
    {
        report.started = true;
    }

    size_t index;
    Helper helper;
    BatchReport report; ///< what it would be if the helper ended now
    bool has_report = false;
    bool is_patient = false; ///< in a phase with a limit of its own
    bool is_stuck = false;   ///< so that nobody knows how far it is
    int64_t heard_us = now_us();
    int64_t killed_us = 0; ///< 0: it was not
};

Status sudden_end(int status)
{
    if (!WIFSIGNALED(status)) {
        return {Reason::kOther,
                text::format("the camera's process ended with exit code %d", WEXITSTATUS(status))};
    }
    const int signal = WTERMSIG(status);
    return {Reason::kOther, text::format("the camera's process was ended by signal %d (%s)", signal,
                                         strsignal(signal))};
}

bool has_more(const LineReader& reader)
{
    pollfd readable{reader.fd(), POLLIN, 0};
    return reader.fd() >= 0 && poll(&readable, 1, 0) > 0;
}

class Leader {
public:
    Leader(const std::vector<BatchCamera>& cameras, const BatchOptions& options,
           const Backups& backups, BatchListener& listener, const BatchStop& stop)
        : cameras_(cameras),
          options_(options),
          backups_(backups),
          listener_(listener),
          stop_(stop),
          program_(options.helper.empty() ? installed_helper() : options.helper)
    {
    }

    void run()
    {
        for (start_some(); !running_.empty(); start_some()) {
            listen();
            obey_stops();
            running_.remove_if([this](Running& running) {
                const bool over = is_over(running);
                if (over)
                    end(running);
                return over;
            });
            listener_.tick();
        }
    }

private:
    void start_some()
    {
        const size_t most = options_.at_once == 0 ? cameras_.size() : options_.at_once;
        for (; next_ < cameras_.size() && (running_.size() < most || is_stopped()); ++next_) {
            if (is_stopped()) {
                BatchReport report;
                report.status = stopped();
                report.stopped = true;
                listener_.ended(next_, report);
            } else {
                start(next_);
            }
        }
    }

    void start(size_t index)
    {
        auto helper = Helper::start(program_, cameras_[index], options_, backups_);
        if (helper) {
            running_.emplace_back(index, *std::move(helper));
            return listener_.started(index);
        }
        BatchReport report;
        report.status = helper.status();
        listener_.ended(index, report);
    }

    bool is_stopped() const
    {
        return stop_.soon.stop_requested() || stop_.at_once.stop_requested();
    }

    /// Waits for something to happen, and takes it in.
    void listen()
    {
        std::vector<pollfd> fds;
        for (Running& running : running_) {
            fds.push_back({running.helper.talk().fd(), POLLIN, 0});
            fds.push_back({running.helper.said().fd(), POLLIN, 0});
        }
        if (poll(fds.data(), fds.size(), kTick_ms) <= 0)
            return;
        auto polled = fds.begin();
        for (Running& running : running_) {
            if ((polled++)->revents != 0)
                take_messages(running);
            if ((polled++)->revents != 0)
                take_prints(running);
        }
    }

    void take_messages(Running& running)
    {
        for (const std::string& line : running.helper.talk().read_lines()) {
            const FromHelper message = parse_from_helper(line);
            running.heard_us = now_us();
            if (const auto* event = std::get_if<Event>(&message)) {
                follow(running, *event);
                listener_.tell(running.index, *event);
            } else if (const auto* report = std::get_if<Report>(&message)) {
                static_cast<Report&>(running.report) = *report;
                running.has_report = true;
            }
        }
    }

    static void follow(Running& running, const Event& event)
    {
        using Kind = Event::Kind;
        if (event.kind == Kind::kOutlook)
            running.report.rom = event.rom;
        if (event.kind == Kind::kBackup)
            running.report.backup = event.text;
        if (event.kind == Event::Kind::kKept)
            running.report.kept.push_back(event.text);
        if (event.kind == Event::Kind::kInstalls)
            running.report.version_before = event.version;
        if (event.kind == Kind::kBegins || event.kind == Kind::kEnds) {
            running.is_patient = event.kind == Kind::kBegins && (event.phase == Phase::kWaiting ||
                                                                 event.phase == Phase::kRestarting);
        }
    }

    void take_prints(Running& running)
    {
        constexpr size_t kKept = 20;
        for (const std::string& line : running.helper.said().read_lines()) {
            const std::string text = text::printable(line);
            listener_.said(running.index, text);
            std::vector<std::string>& said = running.report.said;
            if (said.size() == kKept)
                said.erase(said.begin());
            said.push_back(text);
        }
    }

    void obey_stops()
    {
        const bool begins = is_stopped() && !asked_;
        asked_ = asked_ || begins;
        for (Running& running : running_) {
            if (stop_.at_once.stop_requested()) {
                kill(running, stopped());
            } else if (begins) {
                running.helper.ask_to_stop();
            }
        }
    }

    static void kill(Running& running, Status why)
    {
        if (running.killed_us != 0)
            return;
        running.killed_us = now_us();
        running.is_stuck = running.helper.is_stopped();
        running.helper.kill();
        if (!running.has_report)
            running.report.status = std::move(why);
    }

    bool is_over(Running& running)
    {
        const std::optional<int> status = running.helper.ended();
        if (!status) {
            look_at_time(running);
            const bool is_held = running.killed_us != 0 && now_us() - running.killed_us > kDying_us;
            running.is_stuck = running.is_stuck || is_held;
            return is_held;
        }
        while (has_more(running.helper.talk()))
            take_messages(running);
        while (has_more(running.helper.said()))
            take_prints(running);
        if (!running.has_report && running.killed_us == 0)
            running.report.status = sudden_end(*status);
        return true;
    }

    void end(Running& running)
    {
        BatchReport& report = running.report;
        report.stopped = report.stopped || report.status.reason() == Reason::kStopped;
        if (running.is_stuck && !running.has_report)
            report.rom = RomContents::kUnknown;
        if (running.has_report || report.stopped)
            report.said.clear();
        listener_.ended(running.index, report);
    }

    void look_at_time(Running& running)
    {
        const unsigned limit_s =
            options_.silence_s +
            (running.is_patient ? std::max(options_.upgrade.wait_s, options_.plug_wait_s) : 0);
        if (now_us() - running.heard_us <= int64_t{limit_s} * kSecond_us)
            return;
        const std::string silent = text::format("has been silent for %u s; ", limit_s);
        kill(running,
             {Reason::kTimedOut, running.helper.is_stopped()
                                     ? "the camera's process " + silent + "a signal has stopped it"
                                     : "the camera " + silent + "unplug it and plug it in again"});
    }

    const std::vector<BatchCamera>& cameras_;
    const BatchOptions& options_;
    const Backups& backups_;
    BatchListener& listener_;
    const BatchStop& stop_;
    const std::string program_;
    size_t next_ = 0; ///< the first camera whose turn has not come
    std::list<Running> running_;
    bool asked_ = false; ///< to stop
};

} // namespace

void run_batch(const std::vector<BatchCamera>& cameras, const BatchOptions& options,
               const Backups& backups, BatchListener& listener, const BatchStop& stop)
{
    Leader(cameras, options, backups, listener, stop).run();
}

} // namespace nyxus::engine
