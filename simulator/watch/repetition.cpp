// SPDX-License-Identifier: Apache-2.0
#include "watch/repetition.h"

#include "text/format.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

// A page is written, asked for its state and answered; more requests than these make no pattern.
constexpr size_t kLongestPattern = 4;

std::string times_summary(uint64_t more)
{
    return more == 1
               ? "  ... once more: "
               : text::format("  ... %llu more times: ", static_cast<unsigned long long>(more));
}

std::string step_summary(const Words& first, uint64_t more, uint32_t end)
{
    const size_t colon = first.text.find(':');
    constexpr const char* kWhat[] = {"asked for", "read", "written"};
    return text::format(
               "  ... %llu more like it, %s on to 0x%04X: ", static_cast<unsigned long long>(more),
               kWhat[static_cast<size_t>(first.step->kind)], end - 1) +
           first.text.substr(0, colon);
}

} // namespace

bool Repetition::absorbs(const Words& request)
{
    const auto goes_on = [&](const Run& run) {
        if (!request.step || !run.first.step)
            return run.first.text == request.text && run.first.data == request.data;
        return run.first.step->selector == request.step->selector &&
               run.first.step->kind == request.step->kind && run.end == request.step->begin;
    };
    const auto run = std::ranges::find_if(runs_, goes_on);
    if (run == runs_.end())
        return false;
    ++run->more;
    run->end = request.step ? request.step->end : 0;
    counting_ = true;
    return true;
}

std::vector<std::string> Repetition::summary()
{
    std::vector<std::string> lines;
    for (const Run& run : runs_) {
        if (run.more == 0)
            continue;
        lines.push_back(run.first.step ? step_summary(run.first, run.more, run.end)
                                       : times_summary(run.more) + run.first.text);
    }
    runs_.clear();
    counting_ = false;
    return lines;
}

void Repetition::remember(const Words& request)
{
    if (runs_.size() == kLongestPattern)
        runs_.pop_front();
    runs_.push_back({request, request.step ? request.step->end : 0});
}

} // namespace sim
