// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "console.h"

#include <cstdint>

namespace tool {

/// Shows how the library erases and programs the ROM. Finds the phases by its milestones.
class RomWatcher : public Watcher {
public:
    enum class Phase { kPreparing, kErasing, kErased, kProgramming };

    /// `total_bytes` are those that will be programmed.
    RomWatcher(Display& display, uint64_t total_bytes)
        : display_(display), total_bytes_(total_bytes)
    {
    }

    void on_progress(uint64_t done_bytes) override { display_.advance(done_bytes); }
    void on_line(std::string_view line) override;

    Phase phase() const { return phase_; }

private:
    Display& display_;
    uint64_t total_bytes_;
    Phase phase_ = Phase::kPreparing;
};

/// For a message: "erasing the ROM".
const char* phase_text(RomWatcher::Phase phase);

} // namespace tool
