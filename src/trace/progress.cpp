// SPDX-License-Identifier: Apache-2.0
#include "progress.h"

#include <cstdio>
#include <ctime>

#include "trace_line.h"

namespace {

constexpr uint32_t kRowUnits = nyxus::ProgressMarks::kRowUnits;
constexpr size_t kLongestStep = sizeof "# (100%)\n";
constexpr int64_t kShortestPause_ms = 20;

/// Writes one step, which may be empty, and returns its length.
size_t print_step(char* text, uint32_t current, uint32_t total)
{
    if (total < kRowUnits)
        return 0;
    current &= 0xFFFF;
    int length = 1;
    if (current % kRowUnits == 0) {
        length = std::snprintf(text, kLongestStep, " (%d%%)\n",
                               static_cast<uint8_t>(current * 100 / total));
    } else if (current == total) {
        length = std::snprintf(text, kLongestStep, "# (100%%)\n");
    } else {
        *text = '#';
    }
    return static_cast<size_t>(length);
}

/// Of the machine's own clock, however coarse.
int64_t now_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

} // namespace

void NyPrintProgress(int32_t dwCurrent, uint32_t dwTotal)
{
    char text[kLongestStep] = {};
    const size_t length = print_step(text, static_cast<uint32_t>(dwCurrent), dwTotal);
    if (length > 0)
        nyxus::put(NYXUS_LINE_MARKS, text, length);
}

namespace nyxus {

void TransferProgress::advance(uint32_t bytes)
{
    done_bytes_ += bytes;
    if (total_bytes_ >= kRowUnits)
        report_progress(done_bytes_, total_bytes_);
}

void ProgressMarks::add_step(uint32_t current)
{
    length_ += print_step(text_ + length_, current, total_);
    const bool full = sizeof text_ - length_ < kLongestStep;
    // Trace lines stand between the marks where they belong.
    if (full || ny_trace_param != 0 || now_ms() - written_ms_ >= kShortestPause_ms)
        write();
}

void ProgressMarks::write()
{
    text_[length_] = '\0';
    put(NYXUS_LINE_MARKS, text_, length_);
    length_ = 0;
    written_ms_ = now_ms();
}

} // namespace nyxus
