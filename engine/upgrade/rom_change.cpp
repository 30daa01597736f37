// SPDX-License-Identifier: Apache-2.0
#include "rom_change.h"

#include "report/phase_scope.h"

namespace nyxus::engine {

bool runs_its_rom(const Camera& camera, const Backups& backups)
{
    return camera.runs_external_firmware() && camera.rom_state() == RomState::kFirmware &&
           backups.is_unchanged_since_start(camera.info(), camera.running());
}

void tell_outlook(const Caller& caller, RomContents rom, bool stop_waits)
{
    tell(caller, {.kind = Event::Kind::kOutlook, .rom = rom, .stop_waits = stop_waits});
}

RomChange::RomChange(Camera& camera, const Backups& backups, const Caller& caller, Report& report)
    : camera_(camera),
      backups_(backups),
      caller_(caller),
      report_(report),
      ran_its_rom_(runs_its_rom(camera, backups))
{
    backups.remember_change(camera.info(), camera.running());
    tell_outlook(caller, RomContents::kIncomplete, true);
}

void RomChange::look_for_stop()
{
    if (report_.stopped || !caller_.stop.stop_requested())
        return;
    report_.stopped = true;
    tell(caller_, {.kind = Event::Kind::kStopPostponed});
}

Status RomChange::end(Status status)
{
    look_for_stop();
    if (report_.rom == RomContents::kUnchanged && ran_its_rom_)
        backups_.forget_change(camera_.info());
    tell_outlook(caller_, report_.rom);
    return status && report_.stopped ? stopped() : std::move(status);
}

} // namespace nyxus::engine
