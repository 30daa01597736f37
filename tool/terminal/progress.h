// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <nyxus/engine/events.hpp>
#include <optional>
#include <string>
#include <vector>

namespace tool {

namespace engine = nyxus::engine;

/// How far work has come that goes through phases: in the one that it is in, and on the whole.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    /// What will be done, in this order; so many bytes are programmed and read back.
    void expect(const std::vector<engine::Phase>& phases, uint64_t image_bytes = 0);
    void begin(engine::Phase phase, uint64_t total_bytes);
    void advance(uint64_t bytes) { bytes_ = bytes < total_ ? bytes : total_; }
    void end();

    /// "" before the first one.
    const std::string& phase() const { return phase_; }
    /// Of the phase.
    double seconds() const;
    /// Of all that is expected, 0 to 1; nothing where nobody knows how long it takes.
    std::optional<double> share() const;
    /// Until all of it is done.
    std::optional<double> remaining_s() const;
    /// "reading done in 1.5 s, 64.0 KiB at 42.7 KiB/s"
    std::string summary() const;
    std::string json_line() const;

private:
    struct Stage {
        engine::Phase phase;
        uint64_t bytes;
    };
    double usual_s(const Stage& stage) const;

    std::vector<Stage> stages_;
    size_t stages_done_ = 0;
    bool writes_slowly_ = false;
    Clock::time_point work_begun_;

    std::string phase_;
    uint64_t total_ = 0; ///< 0: nobody knows
    uint64_t bytes_ = 0;
    bool done_ = false;
    Clock::time_point begun_;
};

/// "1:05".
std::string clock_text(double seconds);

} // namespace tool
