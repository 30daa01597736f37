// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "watch/plain_words.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace sim {

/// Counts what repeats itself: a poll that gets the same answer, a walk through the ROM, or several
/// of these in turn. The first of each is told at once, the others as a number when it is over.
class Repetition {
public:
    /// True when the request only goes on with what has been told.
    bool absorbs(const Words& request);
    /// What has been absorbed since; the next request is new.
    std::vector<std::string> summary();
    bool is_counting() const { return counting_; }
    /// The request has been told; others may go on with it.
    void remember(const Words& request);

private:
    struct Run {
        Words first;
        uint32_t end = 0; ///< of the ROM step
        uint64_t more = 0;
    };

    std::deque<Run> runs_;
    bool counting_ = false;
};

} // namespace sim
