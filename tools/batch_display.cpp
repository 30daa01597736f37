// SPDX-License-Identifier: Apache-2.0
#include "batch_display.h"

#include "text.h"

#include <algorithm>
#include <cstdint>

namespace tool {

namespace {

constexpr size_t kPhaseColumns = 12;
constexpr size_t kSmallestBar = 5;
constexpr size_t kLargestBar = 24;
constexpr size_t kLongestLabel = 18;

using Clock = Job::Clock;

/// "1-2", "A0001234" and the product, in columns as wide as the longest of each.
class Labels {
public:
    explicit Labels(const std::vector<Job>& jobs)
    {
        for (const Job& job : jobs) {
            port_ = std::max(port_, job.camera.port.size());
            serial_ = std::max(serial_, std::min(job.camera.serial.size(), kLongestLabel));
            product_ = std::max(product_, std::min(job.camera.product.size(), kLongestLabel));
        }
    }

    std::string of(const CameraLabel& camera) const
    {
        const std::string serial = camera.serial.empty() ? "-" : camera.serial;
        return padded(camera.port, port_) + "  " +
               padded(serial.substr(0, kLongestLabel), serial_) + "  " +
               padded(camera.product.substr(0, kLongestLabel), product_) + "  ";
    }

private:
    size_t port_ = 1;
    size_t serial_ = 1;
    size_t product_ = 1;
};

std::string result_text(const Result& result)
{
    switch (result.outcome) {
        case Outcome::kUpgraded:
            return format("upgraded: %.1f KiB in %.1f s", static_cast<double>(result.bytes) / 1024,
                          result.seconds);
        case Outcome::kUpToDate:
            return "up to date";
        case Outcome::kNotStarted:
            return "not started";
        case Outcome::kInterrupted:
        case Outcome::kFailed:
        case Outcome::kDone: // of other commands
        case Outcome::kDifferent:
            break;
    }
    return result.outcome == Outcome::kFailed
               ? format("failed (%d): ", result.exit_code) + result.message
               : result.message;
}

const char* rom_text(RomContents rom)
{
    switch (rom) {
        case RomContents::kUnchanged:
            return "the ROM is unchanged";
        case RomContents::kNew:
            return "the ROM holds the new firmware";
        case RomContents::kUnverified:
            return "the ROM was written, but not read back";
        case RomContents::kErased:
        case RomContents::kIncomplete:
            break;
    }
    return "the ROM is incomplete";
}

bool is_good(Outcome outcome)
{
    return outcome == Outcome::kUpgraded || outcome == Outcome::kUpToDate;
}

std::string state_and_advice(const Job& job)
{
    return std::string(rom_text(job.result.rom)) +
           (job.advice.empty() ? "" : "; next: " + job.advice);
}

std::string summary_text(const Summary& summary)
{
    const struct {
        size_t count;
        const char* what;
    } parts[] = {
        {summary.upgraded, "upgraded"},       {summary.up_to_date, "up to date"},
        {summary.failed, "failed"},           {summary.interrupted, "interrupted"},
        {summary.not_started, "not started"},
    };
    std::string text = format("%zu camera%s in %s: ", summary.cameras,
                              summary.cameras == 1 ? "" : "s", clock_text(summary.seconds).c_str());
    const char* separator = "";
    for (const auto& part : parts) {
        if (part.count == 0)
            continue;
        text += separator + format("%zu %s", part.count, part.what);
        separator = ", ";
    }
    return text;
}

class JsonView : public BatchView {
public:
    explicit JsonView(Display& display) : display_(display) {}

    void changed(const Job& job) override
    {
        if (job.state == Job::State::kEnded)
            display_.put_event(json_line(job.result));
    }
    void warn(const std::string& line) override { display_.warn(line); }
    void tick() override {}
    void finish(const Summary& summary) override { display_.put_event(json_line(summary)); }

private:
    Display& display_;
};

class PlainView : public BatchView {
public:
    PlainView(Display& display, const std::vector<Job>& jobs, bool quiet)
        : display_(display), labels_(jobs), tells_phases_(!quiet)
    {
    }

    void changed(const Job& job) override
    {
        const std::string label = labels_.of(job.camera);
        if (tells_phases_ && job.state == Job::State::kRunning && !job.progress.phase.empty())
            display_.say(label + job.progress.phase + " ...");
        if (job.state != Job::State::kEnded)
            return;
        display_.say(label + result_text(job.result));
        if (!is_good(job.result.outcome))
            display_.say(label + state_and_advice(job));
    }
    void warn(const std::string& line) override { display_.warn(line); }
    void tick() override {}
    void finish(const Summary& summary) override { display_.say(summary_text(summary)); }

private:
    Display& display_;
    Labels labels_;
    const bool tells_phases_;
};

/// The table of a terminal. Lines that do not fit are left out while it runs: those that wait or
/// have ended.
class LiveView : public BatchView {
public:
    LiveView(Display& display, const std::vector<Job>& jobs)
        : display_(display), jobs_(jobs), labels_(jobs)
    {
        draw();
    }
    ~LiveView() override { erase(); }

    void changed(const Job&) override { draw(); }
    void warn(const std::string& line) override
    {
        erase();
        display_.warn(line);
        draw();
    }
    void tick() override
    {
        if (Clock::now() - drawn_ >= kRedrawInterval)
            draw();
    }
    void finish(const Summary& summary) override
    {
        erase();
        for (const Job& job : jobs_) {
            display_.say(line(job, SIZE_MAX));
            if (!is_good(job.result.outcome))
                display_.say("    " + state_and_advice(job));
        }
        display_.say(summary_text(summary));
        finished_ = true;
    }

private:
    static constexpr std::chrono::milliseconds kRedrawInterval{100};

    void put(const std::string& text)
    {
        display_.pass_on({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    }

    void erase()
    {
        if (drawn_lines_ > 0)
            put(format("\r\033[%zuA\033[J", drawn_lines_));
        drawn_lines_ = 0;
    }

    /// At once, so that nothing flickers.
    void draw()
    {
        if (finished_)
            return;
        const auto [columns, rows] = display_.size();
        const std::vector<const Job*> shown = choose(rows > 3 ? rows - 3 : 1);
        std::string picture = drawn_lines_ > 0 ? format("\r\033[%zuA", drawn_lines_) : "";
        for (const Job* job : shown)
            picture += line(*job, columns - 1) + "\033[K\n";
        picture += status_line().substr(0, columns - 1) + "\033[K\n\033[J";
        put(picture);
        drawn_lines_ = shown.size() + 1;
        drawn_ = Clock::now();
    }

    std::vector<const Job*> choose(size_t most) const
    {
        std::vector<const Job*> chosen;
        for (const bool running : {true, false}) {
            for (const Job& job : jobs_) {
                if ((job.state == Job::State::kRunning) == running && chosen.size() < most)
                    chosen.push_back(&job);
            }
        }
        std::ranges::sort(chosen); // they lie in one vector: back to its order
        return chosen;
    }

    std::string status_line() const
    {
        const Summary sum = summarize(jobs_);
        const size_t ended =
            sum.upgraded + sum.up_to_date + sum.failed + sum.interrupted + sum.not_started;
        return format("%zu of %zu done", ended, sum.cameras) +
               (sum.failed > 0 ? format(", %zu failed", sum.failed) : "") + ", " +
               clock_text(std::chrono::duration<double>(Clock::now() - begun_).count());
    }

    std::string line(const Job& job, size_t columns) const
    {
        const std::string label = labels_.of(job.camera).substr(0, columns);
        const size_t room = columns - label.size();
        if (job.state == Job::State::kWaiting)
            return label + std::string("waiting").substr(0, room);
        if (job.state == Job::State::kRunning)
            return label + running(job.progress, room);
        const Colour colour = is_good(job.result.outcome)              ? Colour::kGreen
                              : job.result.outcome == Outcome::kFailed ? Colour::kRed
                                                                       : Colour::kYellow;
        return label + display_.coloured(cut(result_text(job.result), room), colour);
    }

    std::string running(const Progress& progress, size_t room) const
    {
        if (progress.phase.empty())
            return std::string("starting").substr(0, room);
        const std::string phase = padded(progress.phase, kPhaseColumns);
        if (progress.total == 0)
            return (phase + format("%5.1f s", progress.seconds)).substr(0, room);
        return bar_line(display_, progress, room, {kSmallestBar, kLargestBar});
    }

    /// Whole characters of a UTF-8 text.
    static std::string cut(std::string text, size_t columns)
    {
        if (text.size() <= columns)
            return text;
        while (columns > 0 && (static_cast<unsigned char>(text[columns]) & 0xC0) == 0x80)
            --columns;
        text.resize(columns);
        return text;
    }

    Display& display_;
    const std::vector<Job>& jobs_;
    Labels labels_;
    const Clock::time_point begun_ = Clock::now();
    Clock::time_point drawn_ = begun_;
    size_t drawn_lines_ = 0;
    bool finished_ = false;
};

} // namespace

std::unique_ptr<BatchView> make_batch_view(Display& display, const std::vector<Job>& jobs,
                                           bool json, bool quiet)
{
    if (json)
        return std::make_unique<JsonView>(display);
    if (display.is_live() && !quiet)
        return std::make_unique<LiveView>(display, jobs);
    return std::make_unique<PlainView>(display, jobs, quiet);
}

Summary summarize(const std::vector<Job>& jobs)
{
    Summary summary;
    summary.cameras = jobs.size();
    for (const Job& job : jobs) {
        if (job.state != Job::State::kEnded)
            continue;
        switch (job.result.outcome) {
            case Outcome::kUpgraded:
                ++summary.upgraded;
                break;
            case Outcome::kUpToDate:
                ++summary.up_to_date;
                break;
            case Outcome::kFailed:
                ++summary.failed;
                break;
            case Outcome::kInterrupted:
                ++summary.interrupted;
                break;
            case Outcome::kNotStarted:
                ++summary.not_started;
                break;
            case Outcome::kDone: // of other commands
            case Outcome::kDifferent:
                break;
        }
    }
    return summary;
}

} // namespace tool
