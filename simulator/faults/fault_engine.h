// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/clock.h"
#include "chip/prng.h"
#include "chip/rom_cells.h"
#include "faults/fault_plan.h"
#include "usb/setup.h"
#include "usb/video_stream.h"

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace sim {

/// Decides for one camera what goes wrong. The first fault of the plan that strikes an event wins;
/// those behind it do not see the event. To be asked under the camera's lock.
class FaultEngine {
public:
    /// What it does beyond answering.
    struct Bench {
        std::function<void()> cut_power;
        std::function<void(uint64_t delay_us)> replug_after;
        std::function<void(const PlannedFault&)> tell = {}; ///< of a fault that strikes
    };

    FaultEngine(unsigned position, std::string serial, Clock& clock, Bench bench);

    /// From now on these may strike, too; their times and numbers count from here. When on_clock()
    /// is to be called because of them, from now.
    std::vector<uint64_t> add(const FaultPlan& plan);

    Fault on_transfer(const Setup& setup);
    /// After the camera has served the transfer.
    Fault on_answer();
    RomFault on_rom_access(const RomAccess& access);
    FrameFault on_frame();
    /// Time has passed: an unplug, or nothing.
    Fault on_clock();

    /// How often each of the faults has struck, in the order in which they were added.
    std::vector<uint64_t> strikes() const;

private:
    struct Rule {
        PlannedFault fault;
        bool concerned; ///< it is about this camera
        Prng prng;
        // where things stood when it was added
        uint64_t start_us;
        uint64_t transfers_before;
        uint64_t frames_before;
        uint64_t matches = 0;
        uint64_t strikes = 0;
    };

    bool strikes_now(Rule& rule, const RomAccess* access = nullptr);
    bool holds(const Rule& rule, const RomAccess* access) const;
    Fault transfer_fault(const PlannedFault& fault);
    Fault departure(const PlannedFault& fault) const;
    void apply_to_access(Rule& rule, const RomAccess& access, RomFault& result);

    const unsigned position_;
    const std::string serial_;
    Clock& clock_;
    Bench bench_;
    std::vector<Rule> rules_;
    Setup setup_; ///< of the transfer under way
    uint64_t transfer_ = 0;
    uint64_t frame_ = 0;
    Fault answer_fault_;
};

} // namespace sim
