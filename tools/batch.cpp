// SPDX-License-Identifier: Apache-2.0
// Upgrades all cameras at once.
#include "batch_display.h"
#include "camera_list.h"
#include "commands.h"
#include "failure.h"
#include "follower.h"
#include "json_text.h"
#include "last_words.h"
#include "programming.h"
#include "result.h"
#include "text.h"

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

/// A file in a command line, where it is not to be taken for an option.
std::string file_word(const std::string& file)
{
    return file.starts_with('-') ? "./" + file : file;
}

std::string quoted(const std::string& word)
{
    const auto is_plain = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("-_./:+,", c);
    };
    if (!word.empty() && std::ranges::all_of(word, is_plain))
        return word;
    std::string text = "'";
    for (const char c : printable(word))
        text += c == '\'' ? "'\\''" : std::string(1, c);
    return text + "'";
}

/// The upgrade of one of the cameras.
std::string single_command(const Arguments& arguments)
{
    std::string command = "nyxus upgrade " + quoted(file_word(arguments.file));
    const auto add = [&command](bool wanted, const std::string& words) {
        command += wanted ? " " + words : "";
    };
    add(!arguments.mfi_file.empty(), "--mfi " + quoted(file_word(arguments.mfi_file)));
    add(arguments.eeprom_kib != 0, "--eeprom " + std::to_string(arguments.eeprom_kib));
    add(arguments.skip_backup, "--no-backup");
    add(arguments.skip_verify, "--no-verify");
    add(arguments.force, "--force");
    add(arguments.reset, "--reset");
    add(arguments.wait_s.has_value(), "--wait " + std::to_string(arguments.wait_s.value_or(0)));
    return command;
}

/// The command that goes on with a camera.
std::string advice(const Job& job, const Arguments& arguments)
{
    const std::string choice = " -c " + job.camera.port;
    if (job.result.outcome == Outcome::kUpgraded || job.result.outcome == Outcome::kUpToDate)
        return {};
    if (job.result.exit_code == kExitImageRefused) // it needs another image
        return {};
    if (job.result.rom == RomContents::kNew)
        return "nyxus reset" + choice;
    if (job.result.rom == RomContents::kUnverified)
        return "nyxus compare " + quoted(file_word(arguments.file)) + choice;
    return single_command(arguments) + choice;
}

engine::BatchOptions batch_options(const Arguments& arguments)
{
    constexpr uint32_t kKib = 1024;
    return {.upgrade = upgrade_options(arguments),
            .eeprom_bytes = arguments.eeprom_kib * kKib,
            .restart = arguments.reset,
            .plug_wait_s = arguments.wait_s.value_or(0),
            .silence_s = arguments.patience_s,
            .at_once = arguments.jobs,
            .trace_level = std::min(arguments.verbosity, 3)};
}

Result result_of(const engine::BatchReport& report, const Arguments& arguments,
                 const engine::Images& images)
{
    Result result;
    result.rom = report.rom;
    if (report.status) {
        result.exit_code = kExitOk;
        result.outcome = report.up_to_date ? Outcome::kUpToDate : Outcome::kUpgraded;
        result.message = report.up_to_date ? kUpToDate : what_is_done(arguments, images);
        result.bytes = report.bytes;
        return result;
    }
    const bool has_waited = !report.started && report.stopped;
    const Failure failure =
        has_waited ? Failure(kExitInterrupted, "interrupted before its turn; nothing was written")
                   : failure_of(static_cast<const engine::Report&>(report));
    result.exit_code = failure.code();
    result.message = failure.text();
    result.outcome = has_waited                           ? Outcome::kNotStarted
                     : failure.code() == kExitInterrupted ? Outcome::kInterrupted
                                                          : Outcome::kFailed;
    return result;
}

/// Shows a batch, and brings interrupts to it.
class Batch : engine::BatchListener {
public:
    Batch(Console& console, const Arguments& arguments, const engine::Images& images,
          std::vector<Job> jobs)
        : arguments_(arguments),
          images_(images),
          jobs_(std::move(jobs)),
          view_(make_batch_view(console.display(), jobs_, arguments.json, arguments.quiet))
    {
    }

    ExitCode run()
    {
        const auto begun = Clock::now();
        std::vector<engine::BatchCamera> cameras;
        for (const Job& job : jobs_)
            cameras.push_back({job.camera.port, &images_});
        engine::run_batch(cameras, batch_options(arguments_), engine::Backups(), *this,
                          {soon_.get_token(), at_once_.get_token()});
        Summary summary = summarize(jobs_);
        for (const Job& job : jobs_)
            summary.exit_code = worse(summary.exit_code, job.result.exit_code);
        summary.seconds = seconds_since(begun);
        view_->finish(summary);
        return static_cast<ExitCode>(summary.exit_code);
    }

private:
    using Clock = Job::Clock;
    using Kind = engine::Event::Kind;

    static double seconds_since(Clock::time_point begun)
    {
        return std::chrono::duration<double>(Clock::now() - begun).count();
    }

    void started(size_t camera) override
    {
        Job& job = jobs_[camera];
        job.state = Job::State::kRunning;
        job.begun = job.phase_begun = Clock::now();
        view_->changed(job);
    }

    void tell(size_t camera, const engine::Event& event) override
    {
        Job& job = jobs_[camera];
        if (event.kind == Kind::kStopPostponed) {
            remark(job, "interrupted: the ROM is completed first");
        } else if (event.kind == Kind::kLost) {
            remark(job, event.status.text(advice_after(event.rom)));
        } else if (event.kind <= Kind::kEnds && is_shown(event.phase)) {
            job.progress = {to_text(event.phase), event.done, event.total, event.seconds,
                            event.kind == Kind::kEnds};
            if (event.kind != Kind::kBegins)
                return;
            job.phase_begun = Clock::now();
            remark(job, job.progress.phase);
            view_->changed(job);
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
                view_->note(job, line);
        }
        job.result = result_of(report, arguments_, images_);
        job.result.camera = job.camera;
        job.result.seconds = report.started ? seconds_since(job.begun) : 0;
        job.advice = advice(job, arguments_);
        job.state = Job::State::kEnded;
        view_->changed(job);
    }

    void tick() override
    {
        if (last_words::interrupt_count() > 0 && soon_.request_stop()) {
            view_->warn(
                "nyxus: interrupted: cameras that are being programmed are completed first; a "
                "second interrupt stops at once");
        }
        if (last_words::interrupt_count() > 1)
            at_once_.request_stop();
        for (Job& job : jobs_) {
            if (job.state == Job::State::kRunning && job.progress.total == 0)
                job.progress.seconds = seconds_since(job.phase_begun);
        }
        view_->tick();
    }

    /// For those who want to hear more.
    void remark(const Job& job, const std::string& line)
    {
        if (arguments_.verbosity > 0)
            view_->note(job, line);
    }

    const Arguments& arguments_;
    const engine::Images& images_;
    std::vector<Job> jobs_;
    std::unique_ptr<BatchView> view_;
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
        job.camera = {entry.port_path, entry.serial, entry.product};
        return job;
    });
    std::ranges::sort(jobs, [](const Job& a, const Job& b) { // 1-2 before 1-10
        return strverscmp(a.camera.port.c_str(), b.camera.port.c_str()) < 0;
    });
    return jobs;
}

} // namespace

ExitCode plan_batch(Console& console, const Arguments& arguments, const Run& plan)
{
    refuse_single_camera_options(arguments);
    load_images(arguments); // what is wrong with a file is said once
    int code = kExitOk;
    for (const Job& job : find_jobs(console, arguments)) {
        Arguments single = arguments;
        single.camera = job.camera.port;
        try {
            code = worse(code, plan(console, single));
        } catch (const Failure& failure) {
            console.drain();
            if (arguments.json) {
                Members values = json_of(job.camera);
                values.push_back({"error", json_of(failure)});
                console.display().say(json_line(values));
            }
            console.display().warn("nyxus: " + job.camera.port + ": " + failure.text());
            code = worse(code, failure.code());
        }
    }
    return static_cast<ExitCode>(code);
}

ExitCode run_batch(Console& console, const Arguments& arguments)
{
    refuse_single_camera_options(arguments);
    const engine::Images images = load_images(arguments);
    std::signal(SIGCHLD, SIG_DFL); // a supervisor may have had it ignored
    std::vector<Job> jobs = find_jobs(console, arguments);
    const Unwatched unwatched(console);
    last_words::count_interrupts();
    return Batch(console, arguments, images, std::move(jobs)).run();
}

} // namespace tool
