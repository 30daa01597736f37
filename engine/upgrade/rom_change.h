// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/upgrade.hpp>

namespace nyxus::engine {

/// Keeps the promises around the time in which the ROM is not whole: its backups are unproven from
/// then on, a stop waits, and the caller hears what an end in the middle would leave behind.
class RomChange {
public:
    RomChange(Camera& camera, const Backups& backups, const Caller& caller, Report& report);
    RomChange(const RomChange&) = delete;
    RomChange& operator=(const RomChange&) = delete;

    /// Something else than what was there is in the ROM from now on.
    void begins() { report_.rom = RomContents::kIncomplete; }
    /// Tells, once, that a stop is asked for.
    void look_for_stop();
    /// It is over, well or not. What is returned takes a stop that has waited into account.
    Status end(Status status);

private:
    Camera& camera_;
    const Backups& backups_;
    const Caller& caller_;
    Report& report_;
    const bool ran_its_rom_;
};

/// Whether the camera runs what its ROM holds.
bool runs_its_rom(const Camera& camera, const Backups& backups);

/// Tells what an end in the middle means.
void tell_outlook(const Caller& caller, RomContents rom, bool stop_waits = false);

} // namespace nyxus::engine
