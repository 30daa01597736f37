// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "console.h"

#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

namespace tool {

/// Turns the library's progress rows into bytes. A row holds 512 bytes: a mark per exchange, and
/// the percentage in the place of the last one.
class MarkCounter {
public:
    /// The transfers that follow each other, by their sizes; those that print no marks included.
    MarkCounter(unsigned exchange_bytes, std::vector<uint32_t> transfers);

    void mark();
    void row_end();
    uint64_t done_bytes() const;
    uint64_t total_bytes() const { return total_bytes_; }

private:
    void skip_silent_transfers();
    uint32_t current_size() const
    {
        return current_ < transfers_.size() ? transfers_[current_] : 0;
    }

    unsigned exchange_bytes_;
    std::vector<uint32_t> transfers_;
    uint64_t total_bytes_ = 0;
    size_t current_ = 0;
    uint64_t finished_bytes_ = 0; ///< of the transfers before the current one
    uint32_t rows_ = 0;
    uint32_t marks_ = 0; ///< in the current row
};

/// Shows how the library erases and programs the ROM. Finds the phases by its milestones.
class RomWatcher : public Watcher {
public:
    enum class Phase { kPreparing, kErasing, kErased, kProgramming };

    RomWatcher(Display& display, MarkCounter counter)
        : display_(display), counter_(std::move(counter))
    {
    }

    void on_mark() override;
    void on_row_end() override;
    void on_line(std::string_view line) override;

    /// Valid once the console is drained.
    Phase phase() const { return phase_; }

private:
    Display& display_;
    MarkCounter counter_;
    std::atomic<Phase> phase_ = Phase::kPreparing;
};

/// For a message: "erasing the ROM".
const char* phase_text(RomWatcher::Phase phase);

} // namespace tool
