// SPDX-License-Identifier: Apache-2.0
#include "workers.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <set>
#include <stdexcept>
#include <type_traits>

namespace sweep {

namespace {

static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) <= 512);

class Pool {
public:
    Pool(const std::vector<Job>& jobs, unsigned limit_s, uint8_t crash_ending,
         const std::function<void(const Record& record)>& report)
        : jobs_(jobs), limit_s_(limit_s), crash_ending_(crash_ending), report_(report)
    {
        if (pipe(pipe_) != 0)
            throw std::runtime_error("pipe");
        void* shared = mmap(nullptr, jobs.size() * sizeof(uint32_t), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED)
            throw std::runtime_error("mmap");
        under_way_ = static_cast<volatile uint32_t*>(shared);
        for (uint32_t job = 0; job < jobs.size(); ++job)
            waiting_.push_back({job, jobs[job].first});
    }

    void run(unsigned processes)
    {
        while (!waiting_.empty() || !running_.empty()) {
            while (!waiting_.empty() && running_.size() < processes)
                start();
            read_reports(100);
            reap();
        }
        read_reports(0);
    }
    size_t repeated() const { return repeated_.size(); }

private:
    struct Part {
        uint32_t job;
        uint32_t first;
    };

    struct Worker {
        uint32_t job;
        int errors; ///< what it has written on standard error
    };

    void start()
    {
        const Part part = waiting_.front();
        waiting_.pop_front();
        under_way_[part.job] = part.first;
        std::fflush(nullptr);
        const int errors = memfd_create("errors", MFD_CLOEXEC);
        const pid_t child = fork();
        if (child < 0)
            throw std::runtime_error("fork");
        if (child == 0)
            work(part, errors);
        running_[child] = {part.job, errors};
    }

    [[noreturn]] void work(const Part& part, int errors)
    {
        Record record;
        record.job = part.job;
        record.task = part.first;
        record.ending = crash_ending_;
        int status = 1;
        try {
            alarm(limit_s_);
            const Job::Run run = jobs_[part.job].start();
            dup2(errors, STDERR_FILENO);
            bool goes_on = true;
            for (uint32_t task = part.first; goes_on && task < jobs_[part.job].end; ++task) {
                alarm(limit_s_); // nobody catches it: the process ends
                record = {};
                record.job = part.job;
                record.task = task;
                goes_on = run(task, record);
                send(record);
                under_way_[part.job] = task + 1;
            }
            status = 0;
        } catch (const std::exception& error) {
            std::snprintf(record.text, sizeof record.text, "%s", error.what());
            send(record);
        }
        // What threads of abandoned sessions are at does not matter any more.
        _exit(status);
    }

    void send(const Record& record)
    {
        if (write(pipe_[1], &record, sizeof record) != sizeof record)
            _exit(2);
    }

    void read_reports(int timeout_ms)
    {
        pollfd ready{pipe_[0], POLLIN, 0};
        while (poll(&ready, 1, timeout_ms) > 0) {
            Record record;
            if (read(pipe_[0], &record, sizeof record) != sizeof record)
                throw std::runtime_error("reading the reports");
            report_(record);
            timeout_ms = 0;
        }
    }

    void reap()
    {
        int status = 0;
        for (pid_t child = 0; (child = waitpid(-1, &status, WNOHANG)) > 0;) {
            const auto ended = running_.find(child);
            if (ended == running_.end())
                continue;
            const Worker worker = ended->second;
            running_.erase(ended);
            if (WIFSIGNALED(status)) {
                crashed(worker, WTERMSIG(status));
            } else if (WEXITSTATUS(status) == 0) {
                go_on(worker.job);
            }
            close(worker.errors);
        }
    }

    /// Ended by a signal. A task that a second process does not survive either is at fault itself;
    /// umockdev's preloaded library, which keeps no lock while several threads open and close
    /// files, now and then ends a process too.
    void crashed(const Worker& worker, int signal)
    {
        Record record;
        record.job = worker.job;
        record.task = under_way_[worker.job];
        record.ending = crash_ending_;
        std::snprintf(record.text, sizeof record.text, "%s, signal %d: %s",
                      signal == SIGALRM ? "hung" : "ended the process", signal,
                      last_words(worker.errors).c_str());
        if (signal != SIGALRM && repeated_.insert({record.job, record.task}).second) {
            std::printf("once more: a point of job %u %s\n", record.job, record.text);
        } else {
            report_(record);
            under_way_[worker.job] = record.task + 1;
        }
        go_on(worker.job);
    }

    static std::string last_words(int errors)
    {
        constexpr off_t kMost = 120;
        std::string text(kMost, '\0');
        const off_t end = lseek(errors, 0, SEEK_END);
        const ssize_t got =
            pread(errors, text.data(), text.size(), std::max<off_t>(end - kMost, 0));
        text.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return text;
    }

    /// In a fresh process, with what is left of it.
    void go_on(uint32_t job)
    {
        if (under_way_[job] < jobs_[job].end)
            waiting_.push_front({job, under_way_[job]});
    }

    const std::vector<Job>& jobs_;
    const unsigned limit_s_;
    const uint8_t crash_ending_;
    const std::function<void(const Record& record)>& report_;
    int pipe_[2] = {-1, -1};
    volatile uint32_t* under_way_ = nullptr; ///< tasks by job, shared with the workers
    std::deque<Part> waiting_;
    std::map<pid_t, Worker> running_;
    std::set<std::pair<uint32_t, uint32_t>> repeated_; ///< tasks by job
};

} // namespace

size_t run_jobs(const std::vector<Job>& jobs, unsigned processes, unsigned limit_s,
                uint8_t crash_ending, const std::function<void(const Record& record)>& report)
{
    if (jobs.empty())
        return 0;
    Pool pool(jobs, limit_s, crash_ending, report);
    pool.run(processes);
    return pool.repeated();
}

} // namespace sweep
