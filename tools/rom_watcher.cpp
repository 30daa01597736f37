// SPDX-License-Identifier: Apache-2.0
#include "rom_watcher.h"

#include <algorithm>
#include <numeric>

namespace tool {

constexpr uint32_t kRowBytes = 512;

MarkCounter::MarkCounter(unsigned exchange_bytes, std::vector<uint32_t> transfers)
    : exchange_bytes_(exchange_bytes),
      transfers_(std::move(transfers)),
      total_bytes_(std::accumulate(transfers_.begin(), transfers_.end(), uint64_t{0}))
{
}

/// Transfers of less than a row print nothing; they are over when another one prints.
void MarkCounter::skip_silent_transfers()
{
    while (current_ < transfers_.size() && current_size() < kRowBytes)
        finished_bytes_ += transfers_[current_++];
}

void MarkCounter::mark()
{
    skip_silent_transfers();
    ++marks_;
}

void MarkCounter::row_end()
{
    skip_silent_transfers();
    ++rows_;
    marks_ = 0;
    if (rows_ * kRowBytes < current_size())
        return;
    finished_bytes_ += current_size();
    ++current_;
    rows_ = 0;
}

uint64_t MarkCounter::done_bytes() const
{
    const uint64_t in_transfer = kRowBytes * uint64_t{rows_} + exchange_bytes_ * uint64_t{marks_};
    return std::min(total_bytes_,
                    finished_bytes_ + std::min<uint64_t>(in_transfer, current_size()));
}

void RomWatcher::on_mark()
{
    counter_.mark();
    display_.advance(counter_.done_bytes());
}

void RomWatcher::on_row_end()
{
    counter_.row_end();
    display_.advance(counter_.done_bytes());
}

void RomWatcher::on_line(std::string_view line)
{
    if (line.starts_with("<INFO> External ROM erasing")) {
        phase_ = Phase::kErasing;
        display_.begin("erasing", 0);
    } else if (line.starts_with("<INFO> External ROM erased")) {
        phase_ = Phase::kErased;
        display_.end();
    } else if (line.starts_with("<INFO> External ROM programming")) {
        phase_ = Phase::kProgramming;
        display_.begin("programming", counter_.total_bytes());
    }
}

const char* phase_text(RomWatcher::Phase phase)
{
    switch (phase) {
        case RomWatcher::Phase::kPreparing:
            return "unlocking the ROM";
        case RomWatcher::Phase::kErasing:
            return "erasing the ROM";
        case RomWatcher::Phase::kErased:
            return "locking the ROM again";
        case RomWatcher::Phase::kProgramming:
            break;
    }
    return "programming the ROM";
}

} // namespace tool
