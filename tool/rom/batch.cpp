// SPDX-License-Identifier: Apache-2.0
// Upgrades all cameras at once.
#include "commands.h"
#include "rom/job.h"
#include "rom/programming.h"
#include "session/camera_list.h"
#include "session/follower.h"
#include "session/result.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <nyxus/engine/batch.hpp>

namespace tool {

namespace {

// From the worst to the mildest: cameras that need care first, then those that were never touched.
constexpr ExitCode kBySeverity[] = {
    kExitInterrupted,  kExitMismatch,     kExitCameraLost, kExitTimeout,
    kExitNotStarted,   kExitFailure,      kExitProtected,  kExitNotConfirmed,
    kExitNotSupported, kExitImageRefused, kExitBusy,       kExitPermission,
    kExitNoCamera,     kExitAmbiguous,    kExitUsage,      kExitOk,
};

int worse(int a, int b)
{
    for (const int code : kBySeverity) {
        if (a == code || b == code)
            return code;
    }
    return kExitFailure;
}

engine::BatchOptions batch_options(const Arguments& arguments)
{
    constexpr uint32_t kKib = 1024;
    return {.upgrade = upgrade_options(arguments),
            .queue_depth = arguments.queue_depth,
            .eeprom_bytes = arguments.eeprom_kib * kKib,
            .restart = arguments.reset,
            .allow_downgrade = arguments.allow_downgrade,
            .plug_wait_s = arguments.wait_s.value_or(0),
            .silence_s = arguments.patience_s,
            .at_once = arguments.jobs,
            .trace_level = std::min(arguments.verbosity, 3)};
}

/// What the report means for the job of the camera; `images`: nullptr when none were chosen.
void end(Result& result, const engine::BatchReport& report, const Arguments& arguments,
         const engine::Images* images)
{
    if (report.started)
        result.take_time();
    if (images != nullptr)
        describe(result, *images);
    describe(result, report);
    if (report.status && images != nullptr) {
        result.exit_code = kExitOk;
        result.outcome = report.up_to_date ? Outcome::kUpToDate : Outcome::kUpgraded;
        result.message = report.up_to_date ? kUpToDate : what_is_done(arguments, *images, result);
    } else if (report.started || !report.stopped) {
        result.end(failure_of(static_cast<const engine::Report&>(report)));
    } else {
        result.end({kExitInterrupted, "interrupted before its turn; nothing was written"});
        result.outcome = Outcome::kNotStarted;
    }
}

/// Shows a batch, and brings interrupts to it: a table that is redrawn in place on a terminal,
/// plain lines elsewhere, or JSON lines. A quiet one tells how each camera ended, and the summary.
class Batch : engine::BatchListener {
public:
    Batch(Console& console, const Arguments& arguments,
          const std::vector<engine::ChipImages>& images, std::vector<Job> jobs)
        : display_(console.display()),
          arguments_(arguments),
          images_(images),
          jobs_(std::move(jobs))
    {
        console.interrupts().postpone(
            "nyxus: interrupted: cameras that are being programmed are completed first; a "
            "second interrupt stops at once",
            soon_, at_once_);
    }

    ExitCode run()
    {
        std::vector<engine::BatchCamera> cameras;
        for (Job& job : jobs_) {
            job.images = images_.size() == 1 ? &images_.front().images : nullptr;
            cameras.push_back({job.result.camera.port, &images_});
        }
        engine::run_batch(cameras, batch_options(arguments_), engine::Backups(), *this,
                          {soon_.get_token(), at_once_.get_token()});
        Summary summary = summarize(jobs_);
        for (const Job& job : jobs_)
            summary.exit_code = worse(summary.exit_code, job.result.exit_code);
        summary.seconds = time_.seconds();
        finish(summary);
        return static_cast<ExitCode>(summary.exit_code);
    }

private:
    using Kind = engine::Event::Kind;

    void started(size_t camera) override
    {
        Job& job = jobs_[camera];
        job.state = Job::State::kRunning;
        job.result.begun = Progress::Clock::now();
        draw();
    }

    void tell(size_t camera, const engine::Event& event) override
    {
        Job& job = jobs_[camera];
        if (event.kind == Kind::kStopPostponed) {
            remark(job, "interrupted: the ROM is completed first");
        } else if (event.kind == Kind::kReadAgain) {
            remark(job, "read once more: " + event.status.text());
        } else if (event.kind == Kind::kKept) {
            remark(job, "kept: " + event.text);
        } else if (event.kind == Kind::kChosen) {
            choose(job, event.text);
        } else if (event.kind == Kind::kInstalls) {
            remark(job, event.text);
        } else if (event.kind == Kind::kNotKept) {
            if (!arguments_.quiet)
                display_.warn(job.result.camera.port + ": lost: " + event.text);
        } else if (event.kind == Kind::kLost) {
            remark(job, event.status.text(advice_after(event.rom)));
        } else if (event.kind == Kind::kBegins && is_shown(event.phase)) {
            job.progress = {.phase = to_text(event.phase), .total = event.total};
            remark(job, job.progress.phase);
            if (!draws() && !arguments_.json && !arguments_.quiet)
                display_.say(job.label + job.progress.phase + " ...");
            draw();
        } else if (event.kind <= Kind::kEnds && is_shown(event.phase)) {
            job.progress.bytes = event.done;
        }
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
                display_.warn(job.result.camera.port + ": " + line);
        }
        end(job.result, report, arguments_, job.images);
        job.advice = advice(job.result, arguments_);
        job.state = Job::State::kEnded;
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
    }

    /// For those who want to hear more.
    void remark(const Job& job, const std::string& line)
    {
        if (arguments_.verbosity > 0)
            display_.warn(job.result.camera.port + ": " + line);
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
        std::ranges::transform(chosen, std::back_inserter(rows),
                               [](const Job* job) { return row_of(*job); });
        rows.push_back({.text = status_line()});
        display_.show(std::move(rows));
    }

    std::string status_line() const
    {
        const Summary sum = summarize(jobs_);
        const size_t failed = sum.count(Outcome::kFailed);
        const auto ended = std::ranges::count(jobs_, Job::State::kEnded, &Job::state);
        return format("%td of %zu done", ended, sum.cameras) +
               (failed > 0 ? format(", %zu failed", failed) : "") + ", " +
               clock_text(time_.seconds());
    }

    void tell_result(const Job& job, const std::string& label_of_advice)
    {
        const TableRow row = row_of(job);
        display_.say(row.label + display_.coloured(row.text, row.colour));
        if (!has_succeeded(job))
            display_.say(label_of_advice + state_and_advice(job));
    }

    void finish(const Summary& summary)
    {
        if (arguments_.json)
            return display_.put_event(json_line(summary));
        if (draws()) {
            display_.show({});
            for (const Job& job : jobs_)
                tell_result(job, "    ");
        }
        display_.say(text_of(summary));
    }

    Display& display_;
    const Arguments& arguments_;
    const std::vector<engine::ChipImages>& images_;
    std::vector<Job> jobs_;
    const Progress time_; ///< of the whole batch
    std::stop_source soon_;
    std::stop_source at_once_;
};

void refuse_single_camera_options(const Arguments& arguments)
{
    if (!arguments.camera.empty())
        throw Failure(kExitUsage, "--all means every camera; leave --camera away");
    if (!arguments.serial.empty()) {
        throw Failure(kExitUsage,
                      "--serial would give all cameras the same serial number; "
                      "upgrade them one by one");
    }
}

std::vector<Job> find_jobs(Console& console, const Arguments& arguments)
{
    const std::vector<CameraEntry> cameras = matching_cameras(console, arguments);
    if (cameras.empty())
        select_camera(cameras, ""); // says what to check
    std::vector<Job> jobs(cameras.size());
    std::ranges::transform(cameras, jobs.begin(), [](const CameraEntry& entry) {
        Job job;
        job.result.camera = {entry.port_path, entry.serial, entry.product};
        return job;
    });
    std::ranges::sort(jobs, [](const Job& a, const Job& b) { // 1-2 before 1-10
        return strverscmp(a.result.camera.port.c_str(), b.result.camera.port.c_str()) < 0;
    });
    label(jobs);
    return jobs;
}

} // namespace

ExitCode plan_batch(Console& console, const Arguments& arguments, const Run& plan)
{
    refuse_single_camera_options(arguments);
    int code = kExitOk;
    for (const Job& job : find_jobs(console, arguments)) {
        Arguments single = arguments;
        single.camera = job.result.camera.port;
        try {
            code = worse(code, plan(console, single));
        } catch (const Failure& failure) {
            console.drain();
            if (arguments.json) {
                Members values = json_of(job.result.camera);
                values.push_back({"error", json_of(failure)});
                console.display().say(json_line(values));
            }
            console.display().warn("nyxus: " + job.result.camera.port + ": " + failure.text());
            code = worse(code, failure.code());
        }
    }
    return static_cast<ExitCode>(code);
}

ExitCode run_batch(Console& console, const Arguments& arguments)
{
    refuse_single_camera_options(arguments);
    const Offer offer = load_images(arguments);
    std::signal(SIGCHLD, SIG_DFL); // a supervisor may have had it ignored
    std::vector<Job> jobs = find_jobs(console, arguments);
    take(console, arguments, offer);
    const Unwatched unwatched(console);
    return Batch(console, arguments, offer.images, std::move(jobs)).run();
}

} // namespace tool
