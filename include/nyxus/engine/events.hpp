// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What a caller hears while the engine works, and how it stops the work.
 */
#ifndef NYXUS_ENGINE_EVENTS_HPP
#define NYXUS_ENGINE_EVENTS_HPP

#include <nyxus/engine/status.hpp>

#include <functional>
#include <stop_token>

namespace nyxus::engine {

/// What is being done.
enum class Phase {
    kReading,
    kReadingAgain, ///< what will be the only copy, to compare
    kUnlocking,
    kErasing,
    kProgramming,
    kLocking,
    kVerifying,
    kVerifyingMfi,
    kWaiting,    ///< for a camera to be plugged in
    kRestarting, ///< the camera, until it is back
};
/// For people and programs: "reading".
NYXUS_ENGINE_API const char* to_text(Phase phase);

/// What the ROM holds, with regard to the image.
enum class RomContents {
    kUnchanged,  ///< nothing was written
    kNew,        ///< the image
    kUnverified, ///< the image, but it was not read back
    kIncomplete, ///< something between old and new
    kErased,     ///< nothing
    kUnknown,    ///< nobody can tell: what worked on it neither goes on nor ends
};
/// For programs: "unchanged".
NYXUS_ENGINE_API const char* to_text(RomContents contents);

struct Event {
    enum class Kind {
        kBegins,        ///< `phase`, `total`; `text`: the camera that is waited for
        kAdvances,      ///< `phase`, `done`, `total`, `seconds`
        kEnds,          ///< the same
        kAbandoned,     ///< the same: it failed or was stopped
        kOutlook,       ///< should the process end now, the ROM would hold `rom`
        kStopPostponed, ///< a stop was asked for and waits until the ROM is complete and locked
        kReadAgain,     ///< in `phase`, because of `status`, which says where
        kKept,          ///< `text`, a part of the ROM, stays though the ROM is erased
        kNotKept,       ///< `text`, a part of the ROM, will be lost, and why
        kBackup,        ///< the ROM is kept in the file `text`
        kLost,          ///< the camera is gone: `status`; the ROM holds `rom`. It is waited for
        kRetries,       ///< the camera `text` is back, and the work begins once more
        kInstalls,      ///< an upgrade begins: `text`, from which version to which, and the image's
                        ///< digest; `version`: the one that the camera reports before
        kChosen,        ///< of a batch: the camera gets the ChipImages whose chip is `text`
    };

    Kind kind = Kind::kBegins;
    Phase phase = Phase::kReading;
    uint64_t done = 0;  ///< bytes
    uint64_t total = 0; ///< bytes; 0 where nobody knows how long it takes
    double seconds = 0; ///< since the phase began
    RomContents rom = RomContents::kUnchanged;
    bool stop_waits = false; ///< with kOutlook: from now on a stop is postponed
    std::string text = {};
    std::string version = {};
    Status status = {};
};

/**
 * Who hears of events and may stop the work. Both may be left out.
 *
 * A stop takes effect where it does no harm: while a camera is read at the next 256 bytes (4 KiB
 * where it is read by 512), while it is waited for within 50 ms. From the unlocking of the ROM
 * until it is locked again, a stop is postponed.
 */
struct Caller {
    std::function<void(const Event&)> tell = {}; ///< on the thread that does the work; returns soon
    std::stop_token stop = {};                   ///< asked for by any thread
};

} // namespace nyxus::engine

#endif
