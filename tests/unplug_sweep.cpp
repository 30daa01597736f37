// SPDX-License-Identifier: Apache-2.0
// Unplugs cameras at random moments while they stream, are stopped and deleted: each run in a
// process of its own.
//
//   unplug_sweep [RUNS [SEED [PROCESSES]]]
#include <nyxus/extensions.h>
#include <nyxus/nyxus.hpp>

#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "bus/bed.h"
#include "bus/device_tree.h"
#include "cameras/shipped.h"
#include "support/simulated_time.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr unsigned kLimit_s = 20;
constexpr float kMost_ms = 1500; // about a second, on a machine that is busy

enum Way : uint8_t {
    kCallback,
    kSnapshot,
    kCpp,
    kWaiting,
    kDeletedAsItStreams,
    kIdle,
    kNoThread,
    kWays
};
constexpr const char* kWayNames[kWays] = {"callback",    "snapshot", "C++",      "waiting",
                                          "not stopped", "idle",     "no thread"};

/// With what the unplug begins to count down.
enum Moment : uint8_t { kStart, kStarted, kFrame, kStop, kStopped, kDelete, kMoments };
constexpr const char* kMomentNames[kMoments] = {"the start", "starting", "a frame",
                                                "the stop",  "stopping", "the deletion"};
constexpr int kMostDelays_us[kMoments] = {30000, 120000, 2000, 6000, 1000, 6000};

struct Run {
    const char* model;
    Way way;
    sim::Announce announce;
    Moment moment;
    int delay_us;
    int streaming_us; ///< before the stop, and before the frame of kFrame
    int lead_us;      ///< from that frame to the stop
    sim::Pacing pacing;
    unsigned limit_MiB; ///< of the kernel's memory: the event thread is held at the start, too
};

Run draw(uint32_t seed, uint32_t number)
{
    std::seed_seq sequence{seed, number};
    std::mt19937 random(sequence);
    const auto below = [&random](int limit) {
        return std::uniform_int_distribution<>(0, limit - 1)(random);
    };
    Run run = {};
    run.model = below(2) == 0 ? "rowan-spi" : "rowan-iso";
    run.way = static_cast<Way>(below(kWays));
    run.announce = below(2) == 0 ? sim::Announce::kYes : sim::Announce::kNo;
    run.moment = static_cast<Moment>(below(kMoments));
    run.delay_us = below(kMostDelays_us[run.moment]);
    run.streaming_us = below(100000);
    if (run.way == kNoThread) {
        run.moment = kDelete;
        run.delay_us = 0;
    }
    run.lead_us = below(run.way == kNoThread || below(2) == 0
                            ? 3000
                            : 70000); // close behind the unplug, or two frames
    run.pacing = below(3) == 0 ? sim::Pacing::kFlatOut : sim::Pacing::kRealTime;
    run.limit_MiB = below(2) == 0 ? 16 : 0;
    return run;
}

std::string describe(const Run& run)
{
    char text[160];
    std::snprintf(text, sizeof text, "%s, %s%s, unplugged %s %.1f ms after %s", run.model,
                  kWayNames[run.way], run.pacing == sim::Pacing::kFlatOut ? ", fast" : "",
                  run.announce == sim::Announce::kYes ? "with an event" : "silently",
                  run.delay_us / 1000.0, kMomentNames[run.moment]);
    return text;
}

/// What a run tells.
struct Outcome {
    enum Ending : uint8_t { kClosed, kAbandoned, kBroken } ending;
    float stop_ms;
    float delete_ms;
    bool called_late;
};

/// Unplugs the camera on a thread of its own.
class Cutter {
public:
    Cutter(sim::TestBed& bed, sim::PluggedCamera& camera, const Run& run)
        : run_(run), thread_([this, &bed, &camera] {
              reached_.wait(false);
              const auto due = Clock::now() + microseconds(run_.delay_us);
              while (Clock::now() < due) // a sleep is too coarse
                  std::this_thread::yield();
              bed.unplug(camera, run_.announce);
          })
    {
    }
    void reach(Moment moment)
    {
        if (moment != run_.moment)
            return;
        reached_ = true;
        reached_.notify_all();
    }
    void join() { thread_.join(); }

private:
    const Run run_;
    std::atomic<bool> reached_ = false;
    std::thread thread_;
};

std::atomic<bool> is_stopped = false;
std::atomic<bool> called_late = false;
std::atomic<uint32_t> frames = 0;

void take_frame()
{
    ++frames;
    if (is_stopped)
        called_late = true;
}

void on_frame(uvc_frame_t* /*frame*/, VideoStreamParam* param)
{
    param->reserved++; // freed memory once the stream has been stopped
    take_frame();
}

/// Not for ever: the camera may be gone.
void await_frame()
{
    const uint32_t before = frames;
    const auto end = Clock::now() + std::chrono::milliseconds(100);
    while (frames == before && Clock::now() < end)
        std::this_thread::yield();
}

/// A camera that streams in one of the ways.
class Video {
public:
    Video(Way way, nyxus::Camera& camera) : way_(way), camera_(camera) {}

    void start()
    {
        if (way_ == kCpp) {
            start_stream([](const nyxus::Frame&) { take_frame(); });
        } else if (way_ == kWaiting) {
            start_stream({});
            if (stream_)
                taker_ = std::thread([this] { take_frames(); });
        } else if (way_ == kSnapshot) {
            (void)startVideoStream_snapshot(camera_.device(), nullptr, param_.get());
        } else if (way_ == kCallback || way_ == kDeletedAsItStreams) {
            (void)startVideoStream(camera_.device(), on_frame, param_.get());
        }
    }
    void stop()
    {
        if (way_ == kDeletedAsItStreams)
            return;
        if (stream_)
            stream_->stop();
        if (taker_.joinable())
            taker_.join();
        stream_.reset();
        if (way_ == kCallback || way_ == kSnapshot)
            stopVideoStream(camera_.device());
        forget();
    }
    /// What the stream was given may go now.
    void forget()
    {
        param_.reset();
        is_stopped = true;
    }

private:
    void start_stream(nyxus::FrameCallback callback)
    {
        auto stream = nyxus::Stream::start(camera_, {320, 240, 30}, std::move(callback));
        if (stream)
            stream_ = std::make_unique<nyxus::Stream>(std::move(*stream));
    }
    /// Until the stream is stopped, or the camera is gone.
    void take_frames()
    {
        while (stream_->next(1000))
            take_frame();
    }

    const Way way_;
    nyxus::Camera& camera_;
    std::unique_ptr<VideoStreamParam> param_{new VideoStreamParam{0, 320, 240, 30, nullptr}};
    std::unique_ptr<nyxus::Stream> stream_;
    std::thread taker_;
};

Outcome::Ending ending_of(const NyDevice& device)
{
    constexpr uint8_t kBrokenSession = 2;
    if (device.session_closed == kBrokenSession)
        return Outcome::kBroken;
    return device.device_gone != 0 ? Outcome::kAbandoned : Outcome::kClosed;
}

template <typename Step>
float milliseconds_of(Step step)
{
    const auto begin = Clock::now();
    step();
    return std::chrono::duration<float, std::milli>(Clock::now() - begin).count();
}

Outcome play(const Run& run)
{
    SimulatedTime time(false);
    sim::TestBed bed(time.clock());
    bed.set_usbfs_memory(run.limit_MiB);
    sim::PluggedCamera& plugged = bed.plug(*sim::find_model(run.model), {.serial = {}, .rom = {}});
    plugged.set_pacing(run.pacing);
    nyxus_set_event_thread(run.way == kNoThread ? 0 : 1);
    auto camera = nyxus::Camera::open(nyxus::find_camera().value());
    NyDevice* device = camera->device();
    Video video(run.way, *camera);
    Cutter cutter(bed, plugged, run);
    Outcome outcome = {};

    cutter.reach(kStart);
    video.start();
    cutter.reach(kStarted);
    std::this_thread::sleep_for(microseconds(run.streaming_us));
    if (run.moment == kFrame) {
        await_frame();
        cutter.reach(kFrame);
        std::this_thread::sleep_for(microseconds(run.lead_us));
    }
    cutter.reach(kStop);
    outcome.stop_ms = milliseconds_of([&] { video.stop(); });
    cutter.reach(kStopped);
    std::this_thread::sleep_for(microseconds(run.streaming_us / 100));
    cutter.reach(kDelete);
    if (run.way == kNoThread) // which is quicker than an unplug
        std::this_thread::sleep_for(microseconds(run.lead_us));
    outcome.delete_ms = milliseconds_of([&] { camera->close(); });
    video.forget();

    cutter.join();
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // for what is still under way
    outcome.ending = ending_of(*device);
    outcome.called_late = called_late;
    return outcome;
}

/// Runs in processes of their own, since what is abandoned stays, and a crash shall cost one run.
class Sweep {
public:
    Sweep(uint32_t seed, uint32_t runs)
        : seed_(seed),
          outcomes_(
              static_cast<Outcome*>(mmap(nullptr, runs * sizeof(Outcome), PROT_READ | PROT_WRITE,
                                         MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
    }

    void start(uint32_t number)
    {
        std::fflush(nullptr);
        const int errors = memfd_create("errors", 0);
        const pid_t child = fork();
        if (child == 0) {
            mallopt(M_PERTURB, 0xA5); // freed memory is no memory
            alarm(kLimit_s);
            dup2(errors, STDERR_FILENO);
            outcomes_[number] = play(draw(seed_, number));
            _exit(0);
        }
        running_[child] = {number, errors};
    }
    void wait_for_one()
    {
        int status = 0;
        const pid_t child = waitpid(-1, &status, 0);
        const auto [number, errors] = running_.at(child);
        running_.erase(child);
        judge(number, status, errors);
        close(errors);
    }
    size_t running() const { return running_.size(); }
    bool report() const
    {
        for (int way = 0; way < kWays; ++way) {
            const Tally& tally = tallies_[way];
            std::printf(
                "%-12s %5u runs: %u closed, %u abandoned, %u abandoned inside libuvc; "
                "longest stop %.0f ms, longest delete %.0f ms; %u failed\n",
                kWayNames[way], tally.runs, tally.endings[Outcome::kClosed],
                tally.endings[Outcome::kAbandoned], tally.endings[Outcome::kBroken],
                tally.longest_stop_ms, tally.longest_delete_ms, tally.failed);
        }
        return std::ranges::all_of(tallies_, [](const Tally& t) { return t.failed == 0; });
    }

private:
    struct Tally {
        unsigned runs, failed, endings[3];
        float longest_stop_ms, longest_delete_ms;
    };

    void judge(uint32_t number, int status, int errors)
    {
        const Run run = draw(seed_, number);
        const Outcome& outcome = outcomes_[number];
        Tally& tally = tallies_[run.way];
        ++tally.runs;
        const std::string fault = fault_of(outcome, status);
        if (!fault.empty()) {
            ++tally.failed;
            std::printf("run %u (%s): %s%s\n", number, describe(run).c_str(), fault.c_str(),
                        last_words(errors).c_str());
        }
        if (status != 0)
            return;
        ++tally.endings[outcome.ending];
        tally.longest_stop_ms = std::max(tally.longest_stop_ms, outcome.stop_ms);
        tally.longest_delete_ms = std::max(tally.longest_delete_ms, outcome.delete_ms);
    }
    static std::string fault_of(const Outcome& outcome, int status)
    {
        if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
            return "hangs";
        if (status != 0)
            return "ends with status " + std::to_string(status) + ": ";
        if (outcome.stop_ms > kMost_ms || outcome.delete_ms > kMost_ms) {
            return "takes " + std::to_string(outcome.stop_ms) + " ms to stop, " +
                   std::to_string(outcome.delete_ms) + " ms to delete";
        }
        return outcome.called_late ? "a frame after the stop" : "";
    }
    static std::string last_words(int errors)
    {
        constexpr off_t kMost = 2000;
        std::string text(kMost, '\0');
        const off_t end = lseek(errors, 0, SEEK_END);
        const ssize_t got =
            pread(errors, text.data(), text.size(), std::max<off_t>(end - kMost, 0));
        text.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return text;
    }

    const uint32_t seed_;
    Outcome* const outcomes_;
    std::map<pid_t, std::pair<uint32_t, int>> running_; ///< number, standard error
    Tally tallies_[kWays] = {};
};

uint32_t number(char** arguments, int count, int index, uint32_t otherwise)
{
    return index < count ? static_cast<uint32_t>(std::strtoul(arguments[index], nullptr, 10))
                         : otherwise;
}

} // namespace

int main(int count, char** arguments)
{
    const uint32_t runs = number(arguments, count, 1, 400);
    const uint32_t seed = number(arguments, count, 2, 1);
    const uint32_t processes = std::max(1u, number(arguments, count, 3, 2));
    std::printf("%u runs, seed %u\n", runs, seed);
    Sweep sweep(seed, runs);
    for (uint32_t run = 0; run < runs; ++run) {
        if (sweep.running() == processes)
            sweep.wait_for_one();
        sweep.start(run);
    }
    while (sweep.running() > 0)
        sweep.wait_for_one();
    const bool passed = sweep.report();
    sim::remove_abandoned_beds();
    return passed ? 0 : 1;
}
