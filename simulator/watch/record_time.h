// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/clock.h"

namespace sim {

/// When something happened, in microseconds since 1970. The cameras' real clock is shown as the
/// time of day; their virtual clock as it is, so that two runs can be compared.
class RecordTime {
public:
    RecordTime(Clock& clock, bool is_real);

    uint64_t now_us() const { return offset_us_ + clock_.now_us(); }

private:
    Clock& clock_;
    uint64_t offset_us_ = 0;
};

} // namespace sim
