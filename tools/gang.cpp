// SPDX-License-Identifier: Apache-2.0
// Upgrades all cameras at once: a worker process for each, because the library keeps its state per
// process, and a camera that takes one down does not disturb the others.
#include "camera_list.h"
#include "commands.h"
#include "failure.h"
#include "files/pipe.h"
#include "gang_display.h"
#include "json_text.h"
#include "programming.h"
#include "result.h"
#include "text.h"
#include "worker.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <list>

namespace tool {

namespace {

constexpr int kTick_ms = 100;
constexpr size_t kKeptErrors = 20;

// From the worst to the mildest: cameras that need care first, then those that were never touched.
constexpr ExitCode kBySeverity[] = {
    kExitInterrupted, kExitMismatch,     kExitCameraLost,   kExitTimeout,      kExitFailure,
    kExitProtected,   kExitNotConfirmed, kExitNotSupported, kExitImageRefused, kExitBusy,
    kExitPermission,  kExitNoCamera,     kExitAmbiguous,    kExitUsage,        kExitOk,
};

int worse(int a, int b)
{
    for (const int code : kBySeverity) {
        if (a == code || b == code)
            return code;
    }
    return kExitFailure;
}

/// Interrupts come through a pipe while it lives, one byte each.
class Interrupts {
public:
    Interrupts()
    {
        if (!pipe_.read_end)
            throw Failure(kExitFailure, std::string("cannot make a pipe: ") + std::strerror(errno));
        write_end = pipe_.write_end.get();
        for (size_t i = 0; i < kSignals.size(); ++i)
            replace(kSignals[i], old_[i]);
    }
    ~Interrupts()
    {
        for (size_t i = 0; i < kSignals.size(); ++i)
            sigaction(kSignals[i], &old_[i], nullptr);
        write_end = -1;
    }
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    int fd() const { return pipe_.read_end.get(); }
    size_t take() const
    {
        char bytes[16];
        const ssize_t count = read(fd(), bytes, sizeof bytes);
        return count > 0 ? static_cast<size_t>(count) : 0;
    }

private:
    static void on_signal(int)
    {
        const int error = errno;
        if (write(write_end, "", 1) < 0) // a full pipe holds enough of them
            errno = error;
    }
    static void replace(int signal, struct sigaction& old)
    {
        struct sigaction action = {};
        action.sa_handler = on_signal;
        action.sa_flags = SA_RESTART;
        sigaction(signal, nullptr, &old);
        if (old.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }

    static constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    static inline volatile std::sig_atomic_t write_end = -1;
    files::Pipe pipe_ = files::make_pipe(O_NONBLOCK);
    std::array<struct sigaction, kSignals.size()> old_{};
};

/// A file in a command line, where it is not to be taken for an option.
std::string file_word(const std::string& file)
{
    return file.starts_with('-') ? "./" + file : file;
}

/// The arguments of an upgrade that all its cameras share.
std::vector<std::string> shared_arguments(const Arguments& arguments)
{
    std::vector<std::string> words = {"upgrade", file_word(arguments.file)};
    const auto add = [&words](bool wanted, std::initializer_list<std::string> more) {
        if (wanted)
            words.insert(words.end(), more);
    };
    add(!arguments.mfi_file.empty(), {"--mfi", file_word(arguments.mfi_file)});
    add(arguments.eeprom_kib != 0, {"--eeprom", std::to_string(arguments.eeprom_kib)});
    add(arguments.skip_backup, {"--no-backup"});
    add(arguments.skip_verify, {"--no-verify"});
    add(arguments.force, {"--force"});
    add(arguments.reset, {"--reset"});
    add(arguments.wait_s.has_value(), {"--wait", std::to_string(arguments.wait_s.value_or(0))});
    return words;
}

std::vector<std::string> worker_arguments(const Arguments& arguments, const CameraLabel& camera)
{
    std::vector<std::string> words = shared_arguments(arguments);
    words.insert(words.end(), {"--camera", camera.port, "--json", "--patience",
                               std::to_string(arguments.patience_s)});
    if (arguments.verbosity > 0)
        words.push_back("-" + std::string(static_cast<size_t>(arguments.verbosity), 'v'));
    return words;
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
    std::string command = "nyxus";
    for (const std::string& word : shared_arguments(arguments))
        command += " " + quoted(word);
    return command + choice;
}

/// A job while its worker runs.
struct Running {
    Running(Job& its_job, Worker its_worker) : job(its_job), worker(std::move(its_worker)) {}

    Job& job;
    Worker worker;
    std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
    bool has_result = false;
    std::vector<std::string> errors; ///< what the worker has said on standard error, the last lines
};

class Gang {
public:
    Gang(Console& console, const Arguments& arguments, std::vector<Job> jobs)
        : arguments_(arguments),
          jobs_(std::move(jobs)),
          limit_(arguments.jobs == 0 ? jobs_.size() : arguments.jobs),
          view_(make_gang_view(console.display(), jobs_, arguments.json, arguments.quiet))
    {
    }

    ExitCode run()
    {
        const auto begun = std::chrono::steady_clock::now();
        for (start_some(); !running_.empty(); start_some()) {
            wait();
            reap();
            view_->tick();
        }
        Summary summary = summarize(jobs_);
        for (const Job& job : jobs_)
            summary.exit_code = worse(summary.exit_code, job.result.exit_code);
        summary.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
        view_->finish(summary);
        return static_cast<ExitCode>(summary.exit_code);
    }

private:
    void start_some()
    {
        for (Job& job : jobs_) {
            if (job.state != Job::State::kWaiting)
                continue;
            if (interrupts_seen_ > 0) {
                job.result.outcome = Outcome::kNotStarted;
                job.result.exit_code = kExitInterrupted;
                job.result.message = "interrupted before its turn; nothing was written";
                end(job);
            } else if (running_.size() < limit_) {
                start(job);
            }
        }
    }

    void start(Job& job)
    {
        try {
            running_.emplace_back(job, Worker(worker_arguments(arguments_, job.camera)));
            job.state = Job::State::kRunning;
            view_->changed(job);
        } catch (const Failure& failure) {
            job.result.exit_code = failure.code();
            job.result.message = failure.text();
            end(job);
        }
    }

    void end(Job& job)
    {
        job.result.camera = job.camera;
        job.advice = advice(job, arguments_);
        job.state = Job::State::kEnded;
        view_->changed(job);
    }

    /// Waits for something to happen, and takes it in.
    void wait()
    {
        std::vector<pollfd> fds = {{interrupts_.fd(), POLLIN, 0}};
        for (Running& running : running_) {
            fds.push_back({running.worker.out().fd(), POLLIN, 0});
            fds.push_back({running.worker.err().fd(), POLLIN, 0});
        }
        if (poll(fds.data(), fds.size(), kTick_ms) <= 0)
            return;
        if (fds[0].revents != 0)
            interrupt(interrupts_.take());
        auto polled = fds.begin() + 1;
        for (Running& running : running_) {
            if ((polled++)->revents != 0) {
                for (const std::string& line : running.worker.out().read_lines())
                    take_event(running, line);
            }
            if ((polled++)->revents != 0) {
                for (const std::string& line : running.worker.err().read_lines())
                    take_error(running, line);
            }
        }
    }

    /// The first one lets each camera come to a safe point, the second one does not.
    void interrupt(size_t count)
    {
        for (size_t i = 0; i < count; ++i) {
            if (interrupts_seen_++ == 0) {
                view_->warn(
                    "nyxus: interrupted: cameras that are being programmed are completed "
                    "first; a second interrupt stops at once");
            }
            for (const Running& running : running_)
                running.worker.send(SIGINT);
        }
    }

    void take_event(Running& running, const std::string& line)
    {
        const std::optional<Event> event = parse_event(line);
        if (!event)
            return;
        Job& job = running.job;
        if (const auto* progress = std::get_if<Progress>(&*event)) {
            const bool new_phase = progress->phase != job.progress.phase;
            job.progress = *progress;
            follow_rom(job, *progress);
            if (new_phase)
                view_->changed(job);
            if (new_phase && arguments_.verbosity > 0)
                view_->note(job, progress->phase);
        } else if (const auto* result = std::get_if<Result>(&*event)) {
            job.result = *result;
            running.has_result = true;
        }
    }

    /// What the ROM holds should the worker end without a word.
    static void follow_rom(Job& job, const Progress& progress)
    {
        if (progress.phase == "erasing" || progress.phase == "programming")
            job.result.rom = RomContents::kIncomplete;
        if (progress.phase.starts_with("verifying") ||
            (progress.phase == "programming" && progress.done))
            job.result.rom = RomContents::kUnverified;
    }

    void take_error(Running& running, const std::string& line)
    {
        if (arguments_.verbosity > 0)
            view_->note(running.job, line);
        if (running.errors.size() == kKeptErrors)
            running.errors.erase(running.errors.begin());
        running.errors.push_back(line);
    }

    void reap()
    {
        for (auto running = running_.begin(); running != running_.end();) {
            const bool silent = running->worker.out().fd() < 0 && running->worker.err().fd() < 0;
            const std::optional<int> status = silent ? running->worker.ended() : std::nullopt;
            if (!status) {
                ++running;
                continue;
            }
            if (!running->has_result)
                explain(*running, *status);
            Job& job = running->job;
            running = running_.erase(running);
            end(job);
        }
    }

    /// The result of a worker that gave none: an interrupt at once, or a crash.
    void explain(const Running& running, int status)
    {
        constexpr std::string_view kPrefix = "nyxus: ";
        Result& result = running.job.result;
        result.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - running.begun).count();
        const bool stopped = WIFSIGNALED(status) && WTERMSIG(status) == SIGINT; // before it began
        result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status)
                           : stopped         ? kExitInterrupted
                                             : kExitFailure;
        const bool interrupted = result.exit_code == kExitInterrupted;
        result.outcome = interrupted ? Outcome::kInterrupted : Outcome::kFailed;
        const auto last = std::ranges::find_if(
            running.errors.rbegin(), running.errors.rend(),
            [&](const std::string& line) { return line.starts_with(kPrefix); });
        if (last != running.errors.rend()) {
            result.message = last->substr(kPrefix.size());
        } else if (interrupted) {
            result.message = "interrupted";
        } else if (WIFSIGNALED(status)) {
            result.message = format("the worker was ended by signal %d (%s)", WTERMSIG(status),
                                    strsignal(WTERMSIG(status)));
        } else {
            result.message = format("the worker ended with exit code %d", result.exit_code);
        }
        if (!interrupted && arguments_.verbosity == 0) {
            for (const std::string& line : running.errors)
                view_->note(running.job, line);
        }
    }

    const Arguments& arguments_;
    std::vector<Job> jobs_;
    const size_t limit_;
    std::list<Running> running_;
    Interrupts interrupts_;
    size_t interrupts_seen_ = 0;
    std::unique_ptr<GangView> view_;
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

ExitCode plan_gang(Console& console, const Arguments& arguments, const Run& plan)
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

ExitCode run_gang(Console& console, const Arguments& arguments)
{
    refuse_single_camera_options(arguments);
    load_images(arguments);        // what is wrong with a file is said once
    std::signal(SIGPIPE, SIG_IGN); // the workers inherit it: they outlive a reader that goes away
    std::signal(SIGCHLD, SIG_DFL); // a supervisor may have had it ignored
    std::vector<Job> jobs = find_jobs(console, arguments);
    const Unwatched unwatched(console);
    return Gang(console, arguments, std::move(jobs)).run();
}

} // namespace tool
