// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"
#include "commands.h"
#include "watch/capture.h"
#include "watch/log.h"

#include <list>
#include <optional>
#include <utility>
#include <vector>

namespace sim {

/// Whoever looks at the cameras of an invocation. Make it before the bed; it outlives it.
class Watchers {
public:
    /// Throws std::runtime_error when a file cannot be made.
    Watchers(const WatchArguments& arguments, Clock& clock, bool is_real_time);

    /// `name`: in front of its lines; empty when it is the only one.
    void watch(PluggedCamera& camera, const std::string& name);
    /// A line in the log, if there is one; empty `name`: of no camera.
    void note(const std::string& name, const std::string& text);
    /// Looks no longer. False when something could not be written, which it has reported.
    bool finish();

private:
    void observe(PluggedCamera& camera, UsbObserver& observer);

    std::vector<std::pair<PluggedCamera*, UsbObserver*>> observed_;
    std::optional<PcapFile> pcap_;
    std::list<Capture> captures_;
    std::optional<LogFile> log_;
    bool log_all_;
    std::list<CameraLog> camera_logs_;
};

} // namespace sim
