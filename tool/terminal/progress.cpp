// SPDX-License-Identifier: Apache-2.0
#include "terminal/progress.h"

#include "terminal/json_text.h"
#include "terminal/text.h"

#include <algorithm>
#include <cmath>
#include <nyxus/engine/rom.hpp>

namespace tool {

using engine::Phase;

namespace {

constexpr double kKib = 1024;
/// What is taken from less time says little.
constexpr double kKnown_s = 0.3;

double since(Progress::Clock::time_point begin)
{
    return std::chrono::duration<double>(Progress::Clock::now() - begin).count();
}

Value rounded(std::optional<double> number, double steps)
{
    return number ? Value(std::round(*number * steps) / steps) : Value();
}

bool is_read(Phase phase)
{
    return phase == Phase::kReading || phase == Phase::kReadingAgain;
}

} // namespace

std::string clock_text(double seconds)
{
    const auto whole = static_cast<unsigned>(std::ceil(seconds));
    return format("%u:%02u", whole / 60, whole % 60);
}

void Progress::expect(const std::vector<Phase>& phases, uint64_t image_bytes)
{
    stages_.clear();
    for (const Phase phase : phases)
        stages_.push_back({phase, is_read(phase) ? engine::kRomBlock : image_bytes});
}

void Progress::begin(Phase phase, uint64_t total_bytes)
{
    if (stages_.empty())
        stages_ = {{phase, total_bytes}};
    if (phase_.empty())
        work_begun_ = Clock::now();
    if (const auto stage = std::ranges::find(stages_, phase, &Stage::phase);
        stage != stages_.end()) {
        const auto index = static_cast<size_t>(stage - stages_.begin());
        stages_done_ = index + 1 == stages_done_ ? stages_done_ : index; // several of one kind
        for (Stage& other : stages_) // what is read is read again
            other.bytes = is_read(phase) && is_read(other.phase) ? total_bytes : other.bytes;
        stage->bytes = total_bytes;
    }
    if (phase == Phase::kReading && total_bytes < engine::kRomBlock)
        writes_slowly_ = true; // an EEPROM
    phase_ = to_text(phase);
    total_ = total_bytes;
    bytes_ = 0;
    done_ = false;
    begun_ = Clock::now();
}

void Progress::end()
{
    bytes_ = total_;
    done_ = true;
    if (stages_done_ < stages_.size() && to_text(stages_[stages_done_].phase) == phase_)
        ++stages_done_;
}

double Progress::seconds() const
{
    return since(begun_);
}

/// Of a usual camera; it is the proportions that matter.
double Progress::usual_s(const Stage& stage) const
{
    const double kib = static_cast<double>(stage.bytes) / kKib;
    switch (stage.phase) {
        case Phase::kReading:
            return kib / 40;
        case Phase::kReadingAgain:
            return kib / 25;
        case Phase::kProgramming:
            return writes_slowly_ ? kib / 1.3 : kib / 27;
        case Phase::kVerifying:
            return kib / 50;
        default:
            return 1;
    }
}

std::optional<double> Progress::share() const
{
    if (total_ == 0 && stages_.size() < 2)
        return std::nullopt;
    double all_s = 0;
    double done_s = 0;
    for (size_t i = 0; i < stages_.size(); ++i) {
        const double stage_s = usual_s(stages_[i]);
        all_s += stage_s;
        if (i < stages_done_) {
            done_s += stage_s;
        } else if (i == stages_done_ && total_ > 0 && !done_) {
            done_s += stage_s * static_cast<double>(bytes_) / static_cast<double>(total_);
        }
    }
    return done_s / all_s;
}

std::optional<double> Progress::remaining_s() const
{
    const double share = this->share().value_or(0);
    const double elapsed_s = since(work_begun_);
    if (share == 0 || (elapsed_s < kKnown_s && share < 1))
        return std::nullopt;
    return elapsed_s * (1 - share) / share;
}

std::string Progress::summary() const
{
    const double kib = static_cast<double>(total_) / kKib;
    std::string text = phase_ + format(" done in %.1f s", seconds());
    if (total_ > 0)
        text += format(", %.1f KiB", kib);
    if (total_ > 0 && seconds() > kKnown_s)
        text += format(" at %.1f KiB/s", kib / seconds());
    return text;
}

std::string Progress::json_line() const
{
    return tool::json_line(Members{{"event", "progress"},
                                   {"phase", phase_},
                                   {"bytes", bytes_},
                                   {"total", total_ > 0 ? Value(total_) : Value()},
                                   {"seconds", rounded(seconds(), 1000)},
                                   {"share", rounded(share(), 1000)},
                                   {"remaining_s", rounded(remaining_s(), 10)},
                                   {"done", done_}});
}

} // namespace tool
