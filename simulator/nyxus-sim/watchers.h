// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"
#include "commands.h"
#include "watch/capture.h"

#include <list>
#include <optional>

namespace sim {

/// Whoever looks at the cameras of an invocation. Make it before the bed; it outlives it.
class Watchers {
public:
    /// Throws std::runtime_error when a file cannot be made.
    Watchers(const WatchArguments& arguments, Clock& clock, bool is_real_time);

    void watch(PluggedCamera& camera);
    /// False when something could not be written, which it has reported.
    bool report();

private:
    std::optional<PcapFile> pcap_;
    std::list<Capture> captures_;
};

} // namespace sim
