// SPDX-License-Identifier: Apache-2.0
// Cuts operations of the library at every control transfer, in every way that a camera can fail,
// and checks what the caller is told, what is in the ROM, and that the camera can be recovered.
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bus/device_tree.h"
#include "cameras/shipped.h"
#include "point.h"
#include "workers.h"

namespace {

using namespace sweep;

constexpr unsigned kLimit_s = 30;
constexpr uint32_t kPointsPerProcess = 120;
constexpr uint32_t kMostProblems = 40;
constexpr size_t kPointsPerMark = 200;

struct Options {
    std::string model;
    std::string operation;
    std::string cut;
    uint32_t every = 1;
    /// One of so many points takes the whole path.
    uint32_t every_whole = 16;
    unsigned processes = std::max(1U, std::thread::hardware_concurrency());
    bool lists = false;
};

struct Subject {
    const sim::CameraModel* model;
    const Operation* operation;
};

struct Point {
    const CutKind* kind;
    uint32_t transfer;
    Path path;
};

/// A part of a subject's points, for one process.
struct Batch {
    Subject subject;
    std::vector<Point> points;
};

struct Sum {
    uint32_t points = 0;
    uint32_t endings[4] = {};
    uint32_t header_over_bad_body = 0;
    double slowest_ms = 0;
};

bool chosen(const std::string& wish, std::string_view name)
{
    return wish.empty() || wish == name;
}

std::vector<Subject> choose_subjects(const Options& options)
{
    std::vector<Subject> subjects;
    for (const Operation& operation : operations()) {
        for (const sim::CameraModel& model : sim::models()) {
            if (chosen(options.operation, operation.name) && chosen(options.model, model.name) &&
                operation.applies(model))
                subjects.push_back({&model, &operation});
        }
    }
    return subjects;
}

std::string name_of(const Subject& subject)
{
    return std::string(subject.model->name) + " " + std::string(subject.operation->name);
}

/// Numbers of transfers by subject.
std::vector<uint32_t> measure(const std::vector<Subject>& subjects, unsigned processes)
{
    std::vector<Job> jobs;
    jobs.reserve(subjects.size());
    for (const Subject& subject : subjects) {
        jobs.push_back({0, 1, [subject] {
                            prepare_process();
                            return [subject](uint32_t, Record& record) {
                                const Sweep sweep(*subject.model, *subject.operation, Path::kWhole);
                                std::snprintf(record.text, sizeof record.text, "%zu", sweep.size());
                                return true;
                            };
                        }});
    }
    std::vector<uint32_t> lengths(subjects.size());
    run_jobs(jobs, processes, kLimit_s, 1, [&](const Record& record) {
        if (record.ending != 0 || std::sscanf(record.text, "%u", &lengths[record.job]) != 1) {
            std::printf("%s: %s\n", name_of(subjects[record.job]).c_str(), record.text);
            std::exit(1);
        }
    });
    return lengths;
}

std::vector<Point> choose_points(uint32_t transfers, const Options& options)
{
    std::vector<Point> points;
    uint32_t salt = 0;
    for (const CutKind& kind : cut_kinds()) {
        salt += 5;
        if (!chosen(options.cut, kind.name))
            continue;
        for (uint32_t i = (options.every - salt % options.every) % options.every; i < transfers;
             i += options.every) {
            points.push_back(
                {&kind, i,
                 points.size() % options.every_whole == 0 ? Path::kWhole : Path::kShortcut});
        }
    }
    return points;
}

/// Neighbouring transfers together, so that they share what is known of recoveries.
std::vector<Batch> make_batches(const std::vector<Subject>& subjects, const Options& options)
{
    const std::vector<uint32_t> lengths = measure(subjects, options.processes);
    std::vector<Batch> batches;
    for (size_t i = 0; i < subjects.size(); ++i) {
        std::vector<Point> points = choose_points(lengths[i], options);
        const auto count = static_cast<uint32_t>(points.size() / (kPointsPerProcess * 8) + 1);
        std::vector<Batch> parts(count, Batch{subjects[i], {}});
        for (const Point& point : points)
            parts[uint64_t{point.transfer} * count / lengths[i]].points.push_back(point);
        for (Batch& part : parts) {
            if (!part.points.empty())
                batches.push_back(std::move(part));
        }
    }
    return batches;
}

Job job_of(const Batch& batch)
{
    return {0, static_cast<uint32_t>(batch.points.size()), [&batch] {
                prepare_process();
                auto sweep = std::make_shared<Sweep>(*batch.subject.model, *batch.subject.operation,
                                                     Path::kShortcut);
                return [&batch, sweep](uint32_t task, Record& record) {
                    const Point& point = batch.points[task];
                    const Verdict verdict = sweep->run(*point.kind, point.transfer, point.path);
                    record.ending = static_cast<uint8_t>(verdict.ending);
                    record.flagged = verdict.header_over_bad_body;
                    record.milliseconds = static_cast<float>(verdict.milliseconds);
                    std::snprintf(record.text, sizeof record.text, "%s", verdict.problem.c_str());
                    return !sweep->is_worn_out();
                };
            }};
}

class Report {
public:
    Report(const std::vector<Batch>& batches, bool lists)
        : batches_(batches), lists_(lists), shows_progress_(isatty(STDERR_FILENO) != 0)
    {
        for (const Batch& batch : batches)
            points_ += batch.points.size();
    }

    void add(const Record& record)
    {
        const Batch& batch = batches_[record.job];
        const Point& point = batch.points[record.task];
        Sum& sum = sums_[{batch.subject.operation, point.kind}];
        const auto ending = static_cast<Ending>(record.ending);
        ++sum.points;
        ++sum.endings[record.ending];
        sum.header_over_bad_body += record.flagged ? 1 : 0;
        sum.slowest_ms = std::max<double>(sum.slowest_ms, record.milliseconds);
        const bool is_wrong = ending == Ending::kWrong;
        if ((is_wrong && ++problems_ <= kMostProblems) ||
            (lists_ && (record.flagged || ending == Ending::kUnnoticed))) {
            std::printf("%s, %s at transfer %u: %s%s%s\n", name_of(batch.subject).c_str(),
                        point.kind->name.data(), point.transfer, is_wrong ? record.text : "",
                        ending == Ending::kUnnoticed ? "unnoticed" : "",
                        record.flagged ? " (header over bad body)" : "");
        }
        if (shows_progress_ && ++done_ % kPointsPerMark == 0)
            std::fprintf(stderr, "\r%zu of %zu points\r", done_, points_);
    }

    /// True when every check of every point has passed.
    bool print() const
    {
        Sum all;
        std::printf("%-14s %-13s %7s %8s %8s %8s %9s %6s %9s\n", "operation", "cut", "points",
                    "survived", "reported", "done", "unnoticed", "header", "slowest");
        for (const Operation& operation : operations()) {
            for (const CutKind& kind : cut_kinds()) {
                const auto sum = sums_.find({&operation, &kind});
                if (sum != sums_.end())
                    print_line(operation.name, kind.name, sum->second, all);
            }
        }
        Sum ignored;
        print_line("all", "", all, ignored);
        return all.endings[static_cast<size_t>(Ending::kWrong)] == 0 && all.points > 0;
    }

private:
    static void print_line(std::string_view operation, std::string_view cut, const Sum& sum,
                           Sum& all)
    {
        const auto count = [&sum](Ending ending) {
            return sum.endings[static_cast<size_t>(ending)];
        };
        std::printf("%-14s %-13s %7u %8u %8u %8u %9u %6u %6.0f ms\n", operation.data(), cut.data(),
                    sum.points, sum.points - count(Ending::kWrong), count(Ending::kReported),
                    count(Ending::kDone), count(Ending::kUnnoticed), sum.header_over_bad_body,
                    sum.slowest_ms);
        all.points += sum.points;
        for (size_t i = 0; i < std::size(sum.endings); ++i)
            all.endings[i] += sum.endings[i];
        all.header_over_bad_body += sum.header_over_bad_body;
        all.slowest_ms = std::max(all.slowest_ms, sum.slowest_ms);
    }

    const std::vector<Batch>& batches_;
    const bool lists_;
    const bool shows_progress_;
    size_t points_ = 0;
    size_t done_ = 0;
    uint32_t problems_ = 0;
    std::map<std::pair<const Operation*, const CutKind*>, Sum> sums_;
};

constexpr char kUsage[] =
    "usage: cut_sweep [--model NAME] [--operation NAME] [--cut NAME] [--every N]\n"
    "                 [--every-whole N] [--processes N] [--list]\n";

uint32_t number(const char* text)
{
    const long value = std::strtol(text, nullptr, 10);
    if (value < 1 || value > 1000000) {
        std::fputs(kUsage, stderr);
        std::exit(2);
    }
    return static_cast<uint32_t>(value);
}

Options parse(int count, char** arguments)
{
    const option known[] = {{"model", 1, nullptr, 'm'},     {"operation", 1, nullptr, 'o'},
                            {"cut", 1, nullptr, 'c'},       {"every", 1, nullptr, 'e'},
                            {"processes", 1, nullptr, 'p'}, {"every-whole", 1, nullptr, 'w'},
                            {"list", 0, nullptr, 'l'},      {}};
    Options options;
    for (int found = 0; (found = getopt_long(count, arguments, "", known, nullptr)) != -1;) {
        switch (found) {
            case 'm':
                options.model = optarg;
                break;
            case 'o':
                options.operation = optarg;
                break;
            case 'c':
                options.cut = optarg;
                break;
            case 'e':
                options.every = number(optarg);
                break;
            case 'w':
                options.every_whole = number(optarg);
                break;
            case 'p':
                options.processes = number(optarg);
                break;
            case 'l':
                options.lists = true;
                break;
            default:
                std::fputs(kUsage, stderr);
                std::exit(2);
        }
    }
    return options;
}

} // namespace

int main(int count, char** arguments)
{
    const Options options = parse(count, arguments);
    // Beds are made and dropped thousands of times: a hundred times faster in memory than on disk.
    if (access("/dev/shm", W_OK) == 0)
        setenv("TMPDIR", "/dev/shm", 1);
    const auto start = std::chrono::steady_clock::now();
    const std::vector<Batch> batches = make_batches(choose_subjects(options), options);
    std::vector<Job> jobs;
    jobs.reserve(batches.size());
    for (const Batch& batch : batches)
        jobs.push_back(job_of(batch));
    Report report(batches, options.lists);
    const size_t repeated =
        run_jobs(jobs, options.processes, kLimit_s, static_cast<uint8_t>(Ending::kWrong),
                 [&report](const Record& record) { report.add(record); });
    sim::remove_abandoned_beds();
    const bool passed = report.print();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    std::printf("%.0f s, %u processes at a time, %zu points repeated\n", elapsed.count(),
                options.processes, repeated);
    return passed ? 0 : 1;
}
