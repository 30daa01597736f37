// SPDX-License-Identifier: Apache-2.0
// Upgrades all cameras at once.
#include "rom/job.h"
#include "session/choose.h"
#include "session/follower.h"
#include "session/run.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <map>
#include <nyxus/engine/batch.hpp>

namespace tool {

namespace {

engine::BatchOptions batch_options(const Arguments& arguments, const UpgradeArguments& wanted)
{
    constexpr uint32_t kKib = 1024;
    return {.upgrade = upgrade_options(arguments, wanted.how),
            .queue_depth = arguments.queue_depth,
            .eeprom_bytes = wanted.how.eeprom_kib * kKib,
            .restart = wanted.how.restart,
            .allow_downgrade = wanted.sources.allow_downgrade,
            .plug_wait_s = arguments.wait_s.value_or(0),
            .silence_s = arguments.patience_s,
            .at_once = wanted.jobs,
            .trace_level = std::min(arguments.verbosity, 3)};
}

/// What the report means for the job of the camera.
void end(Job& job, const engine::BatchReport& report, const Programming& how)
{
    Result& result = job.result;
    job.state = Job::State::kEnded;
    if (report.started)
        result.take_time();
    if (job.images != nullptr)
        describe(result, *job.images);
    result.report = report;
    if (report.status && job.images != nullptr) {
        result.exit_code = kExitOk;
        result.outcome = report.up_to_date ? Outcome::kUpToDate : Outcome::kUpgraded;
        result.message =
            report.up_to_date ? kUpToDate : "upgraded: " + what_is_done(how, *job.images, result);
    } else if (report.started || !report.stopped) {
        result.end(failure_of(result.report));
    } else {
        result.end({kExitInterrupted, "interrupted before its turn; nothing was written"});
        result.outcome = Outcome::kNotStarted;
    }
}

/// How many cameras have ended in which way.
std::map<Outcome, size_t> outcomes_of(const std::vector<Job>& jobs)
{
    std::map<Outcome, size_t> ended;
    for (const Job& job : jobs) {
        if (job.state == Job::State::kEnded)
            ++ended[job.result.outcome];
    }
    return ended;
}

/// Shows a batch, and brings interrupts to it: a table that is redrawn in place on a terminal,
/// plain lines elsewhere, or JSON lines. A quiet one tells how each camera ended, and the summary.
class Batch : engine::BatchListener {
public:
    Batch(Console& console, const Arguments& arguments, const UpgradeArguments& wanted,
          const std::vector<engine::ChipImages>& images, std::vector<Job> jobs)
        : display_(console.display()),
          arguments_(arguments),
          wanted_(wanted),
          images_(images),
          jobs_(std::move(jobs))
    {
        console.postpone_interrupts(
            "nyxus: interrupted: cameras that are being programmed are completed first; a "
            "second interrupt stops at once",
            soon_, at_once_);
    }

    ExitCode run()
    {
        std::vector<engine::BatchCamera> cameras;
        for (Job& job : jobs_) {
            if (images_.size() == 1)
                choose(job, images_.front().chip);
            cameras.push_back({job.result.camera.port_path, &images_});
        }
        engine::run_batch(cameras, batch_options(arguments_, wanted_), engine::Backups(), *this,
                          {soon_.get_token(), at_once_.get_token()});
        ExitCode code = kExitOk;
        for (const Job& job : jobs_)
            code = worse(code, job.result.exit_code);
        finish(code);
        return code;
    }

private:
    using Kind = engine::Event::Kind;

    void started(size_t camera) override
    {
        Job& job = jobs_[camera];
        job.state = Job::State::kRunning;
        job.result.begun = std::chrono::steady_clock::now();
        draw();
    }

    void tell(size_t camera, const engine::Event& event) override
    {
        Job& job = jobs_[camera];
        if (event.kind == Kind::kChosen) {
            choose(job, event.text);
        } else if (event.kind <= Kind::kEnds && is_shown(event.phase)) {
            follow_phase(job, event);
        } else if (event.kind == Kind::kInstalls || event.kind == Kind::kNotKept) {
            if (!arguments_.json && !arguments_.quiet)
                display_.say(job.label + words_of(event));
        } else if (const std::string words = words_of(event); !words.empty()) {
            remark(job, words);
        }
    }

    void follow_phase(Job& job, const engine::Event& event)
    {
        job.progress.advance(event.done);
        if (event.kind == Kind::kEnds)
            job.progress.end();
        if (event.kind != Kind::kBegins)
            return;
        job.progress.begin(event.phase, event.total);
        remark(job, job.progress.phase());
        if (!draws() && !arguments_.json && !arguments_.quiet)
            display_.say(job.label + job.progress.phase() + " ...");
        draw();
    }

    void said(size_t camera, const std::string& line) override
    {
        remark(jobs_[camera], "  | " + line);
    }

    void ended(size_t camera, const engine::BatchReport& report) override
    {
        Job& job = jobs_[camera];
        if (arguments_.verbosity == 0) {
            for (const std::string& line : report.said)
                display_.warn(job.result.camera.port_path + ": " + line);
        }
        end(job, report, wanted_.how);
        if (arguments_.json) {
            display_.put_event(json_line(job.result));
        } else if (!draws()) {
            tell_result(job, job.label);
        }
        draw();
    }

    void tick() override { draw(); }

    void choose(Job& job, const std::string& chip) const
    {
        for (const engine::ChipImages& images : images_) {
            if (images.chip == chip)
                job.images = &images.images;
        }
        if (job.images != nullptr)
            job.progress.expect(kUpgradePhases, image_bytes(*job.images));
    }

    /// For those who want to hear more.
    void remark(const Job& job, const std::string& line)
    {
        if (arguments_.verbosity > 0)
            display_.warn(job.result.camera.port_path + ": " + line);
    }

    bool draws() const { return display_.is_live(); }

    /// Lines that do not fit are left out: those that wait or have ended.
    void draw()
    {
        if (!draws())
            return;
        const size_t most = std::max<size_t>(display_.most_rows(), 2) - 1;
        std::vector<const Job*> chosen;
        for (const bool running : {true, false}) {
            for (const Job& job : jobs_) {
                if ((job.state == Job::State::kRunning) == running && chosen.size() < most)
                    chosen.push_back(&job);
            }
        }
        std::ranges::sort(chosen); // they lie in one vector: back to its order
        std::vector<TableRow> rows;
        std::ranges::transform(chosen, std::back_inserter(rows), &Job::row);
        rows.push_back({.text = status_line()});
        display_.show(std::move(rows));
    }

    std::string status_line() const
    {
        auto ended = outcomes_of(jobs_);
        const size_t failed = ended[Outcome::kFailed];
        const double share = this->share();
        const double left_s = share > 0 ? seconds() * (1 - share) / share : 0;
        return format("%td of %zu done", std::ranges::count(jobs_, Job::State::kEnded, &Job::state),
                      jobs_.size()) +
               (failed > 0 ? format(", %zu failed", failed) : "") + ", " + clock_text(seconds()) +
               (left_s > 0 ? ", " + clock_text(left_s) + " left" : "");
    }

    /// Of all the work.
    double share() const
    {
        double sum = 0;
        for (const Job& job : jobs_)
            sum += job.state == Job::State::kEnded ? 1 : job.progress.share().value_or(0);
        return sum / static_cast<double>(jobs_.size());
    }

    double seconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
    }

    void tell_result(const Job& job, const std::string& label_of_advice)
    {
        const TableRow row = job.row();
        display_.say(row.label + display_.coloured(row.text, row.colour));
        if (!job.has_succeeded())
            display_.say(label_of_advice + state_and_advice(job, arguments_, wanted_));
    }

    void finish(ExitCode code)
    {
        if (arguments_.json)
            return display_.put_result(json_summary(code));
        if (draws()) {
            display_.show({});
            for (const Job& job : jobs_)
                tell_result(job, "    ");
        }
        std::string text = format("%zu camera%s in ", jobs_.size(), jobs_.size() == 1 ? "" : "s") +
                           clock_text(seconds());
        const char* separator = ": ";
        for (const auto& [outcome, count] : outcomes_of(jobs_)) {
            text += separator + format("%zu ", count) + words_of(outcome);
            separator = ", ";
        }
        display_.say(text);
    }

    std::string json_summary(ExitCode code) const
    {
        auto ended = outcomes_of(jobs_);
        Members values = {{"event", "summary"}, {"cameras", jobs_.size()}};
        for (const Outcome outcome : {Outcome::kUpgraded, Outcome::kUpToDate, Outcome::kFailed,
                                      Outcome::kInterrupted, Outcome::kNotStarted}) {
            std::string name = to_text(outcome);
            std::ranges::replace(name, '-', '_');
            values.push_back({name, ended[outcome]});
        }
        values.push_back({"exit_code", code});
        values.push_back({"seconds", std::round(seconds() * 10) / 10});
        return json_line(values);
    }

    Display& display_;
    const Arguments& arguments_;
    const UpgradeArguments& wanted_;
    const std::vector<engine::ChipImages>& images_;
    std::vector<Job> jobs_;
    const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    std::stop_source soon_;
    std::stop_source at_once_;
};

std::vector<Job> find_jobs(Console& console, const Arguments& arguments)
{
    std::vector<Job> jobs;
    for (const CameraEntry& camera : every_camera(console, arguments)) {
        jobs.emplace_back();
        jobs.back().result.camera = camera;
    }
    label(jobs);
    return jobs;
}

} // namespace

ExitCode run_batch(Console& console, const Arguments& arguments, const UpgradeArguments& wanted)
{
    const Offer offer = load_images(wanted.sources);
    std::signal(SIGCHLD, SIG_DFL); // a supervisor may have had it ignored
    std::vector<Job> jobs = find_jobs(console, arguments);
    take(console, arguments, offer);
    const Unwatched unwatched(console);
    return Batch(console, arguments, wanted, offer.images, std::move(jobs)).run();
}

} // namespace tool
