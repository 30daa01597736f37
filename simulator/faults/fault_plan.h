// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "description/kinds.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// When a fault strikes. All that is set has to hold. Numbers count from 1 and for each camera
/// since its faults were set; they go on over restarts and re-plugs.
struct Trigger {
    std::optional<Range> transfer = {}; ///< control transfers, whatever they ask for
    std::optional<uint8_t> unit = {};   ///< the next three: class requests to an interface
    std::optional<uint8_t> selector = {};
    std::optional<uint8_t> request = {};
    std::optional<Range> rom_address = {}; ///< accesses that touch it
    std::optional<Range> frame = {};       ///< frames that the host has room for
    std::optional<Range> time_us = {};     ///< of the camera's clock, since the faults were set
    std::optional<Range> count = {};       ///< among the events for which all of the above hold
    double probability = 1;
    std::string serial = {}; ///< empty: any camera
    unsigned position = 0;   ///< of the camera on the bed, from 1; 0: any
};

enum class Effect {
    kStalled,
    kIoError,
    kTimeout,
    kNoAnswer,
    kShort,
    kWrongLength,
    kLate,
    kUnplug,
    kPowerCut,
    kTruncate,
    kErrorBit,
    kLyingWrite,
    kLyingErase,
    kStuckBusy,
    kIgnoredLock,
    kIgnoredUnlock,
    kBitFlip,
};

/// What a fault strikes; it follows from its effect and its triggers.
enum class Site {
    kTransfer,
    kRom, ///< an access to the ROM, or the answer of the transfer that made it
    kFrame,
    kClock, ///< nothing: it happens by itself
};

struct PlannedFault {
    Trigger when = {};
    Effect effect = Effect::kStalled;
    Site site = Site::kTransfer;
    uint32_t bytes = 0;                       ///< kShort, kWrongLength, kTruncate
    std::optional<uint64_t> duration_us = {}; ///< kLate; kStuckBusy: nothing: for ever
    std::optional<uint8_t> mask = {};         ///< kBitFlip; nothing: one bit by chance
    bool announced = true;                    ///< kUnplug, kPowerCut
    std::optional<uint64_t> replug_us = {};   ///< the same: it comes back after so long
    bool after = false;                       ///< once the camera has obeyed
    uint64_t times =
        std::numeric_limits<uint64_t>::max(); ///< how often it strikes a camera at most
    uint64_t seed = 0;
    std::string text = {}; ///< how a report calls it
};

using FaultPlan = std::vector<PlannedFault>;

} // namespace sim
