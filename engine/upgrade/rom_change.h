// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/upgrade.hpp>

#include "units/unit_log.h"

namespace nyxus::engine {

/// What an operation does to a ROM.
struct Change {
    std::string operation;   ///< "upgrade"
    Bytes image = {};        ///< the firmware that is written; nothing for another change
    std::string file = {};   ///< SHA-256 of the file that it was read from
    std::string serial = {}; ///< that is written with it
    std::vector<std::string> kept = {}; ///< parts of the ROM that stay
};

/// Keeps the promises around the time in which the ROM is not whole: the journal tells of each step
/// before it is done, a stop waits, and the caller hears what an end in the middle would leave
/// behind.
class RomChange {
public:
    RomChange(Camera& camera, const Backups& backups, const Caller& caller, Report& report);
    RomChange(const RomChange&) = delete;
    RomChange& operator=(const RomChange&) = delete;

    /// The journal can be written, so that the ROM may be unlocked. kJournalNotKept.
    Status opens(const Change& change);
    /// Something else than what was there is in the ROM from now on, unless this fails.
    Status begins(JournalStep step);
    /// Tells, once, that a stop is asked for.
    void look_for_stop();
    /// It is over, well or not. What is returned takes a stop that has waited into account.
    Status end(Status status);

private:
    Camera& camera_;
    const Caller& caller_;
    Report& report_;
    Result<UnitLog> log_;
    bool is_open_ = false;
    std::optional<JournalStep> latest_ = std::nullopt; ///< that the journal has been told of
};

/// Keeps what the ROM holds, unless that is blank, and tells where. kBackupNotKept.
Status keep_backup(const Camera& camera, const Backups& backups, Bytes contents,
                   const Caller& caller, Report& report);

/// Reads the ROM first, all that a change may replace.
Status keep_rom(Camera& camera, const Backups& backups, const Caller& caller, Report& report);

/// What a look at the ROM has shown, after a change.
void note_in_journal(const Camera& camera, const Backups& backups, JournalStep step);

/// The ROM turns out to hold what this change would write, whatever the journal says: another one
/// may have been killed right before its end.
void note_up_to_date(const Camera& camera, const Backups& backups, const Change& change);

/// Tells what an end in the middle means.
void tell_outlook(const Caller& caller, RomContents rom, bool stop_waits = false);

} // namespace nyxus::engine
