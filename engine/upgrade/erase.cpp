// SPDX-License-Identifier: Apache-2.0
#include "report/phase_scope.h"
#include "rom/writer.h"
#include "rom_change.h"

namespace nyxus::engine {

namespace {

Status erase_and_lock(Camera& camera, const Caller& caller, RomChange& change)
{
    if (Status unlocked = enable_writing(camera, true, caller); !unlocked)
        return unlocked;
    change.look_for_stop();
    if (Status noted = change.begins(JournalStep::kErasing); !noted)
        return noted;
    if (Status erased = erase_flash(camera, caller); !erased)
        return erased;
    return enable_writing(camera, false, caller);
}

Status erase_rom(Camera& camera, const Backups& backups, const Caller& caller, Report& report)
{
    RomChange change(camera, backups, caller, report);
    Status done = change.opens({.operation = "erase"});
    if (done)
        done = erase_and_lock(camera, caller, change);
    if (done)
        report.rom = RomContents::kUnverified;
    return change.end(std::move(done));
}

Status do_erase(Camera& camera, const Backups& backups, const Caller& caller, bool backup,
                Report& report)
{
    if (Status possible = check_erasable(camera); !possible)
        return possible;
    if (caller.stop.stop_requested())
        return stopped();
    if (Status kept = backup ? keep_rom(camera, backups, caller, report) : Status(); !kept)
        return kept;
    if (Status done = erase_rom(camera, backups, caller, report); !done)
        return done;
    const std::vector<uint8_t> blank(erased_bytes(camera), 0xFF);
    const auto rom = read_back(camera, 0, blank, caller, Phase::kVerifying);
    if (!rom)
        return rom.status();
    report.rom = is_blank(*rom) ? RomContents::kErased : RomContents::kIncomplete;
    tell_outlook(caller, report.rom);
    const bool is_erased = report.rom == RomContents::kErased;
    note_in_journal(camera, backups, is_erased ? JournalStep::kErased : JournalStep::kDiffers);
    if (is_erased)
        return {};
    return {Reason::kMismatch, "the ROM is not empty after the erase; is it write-protected?"};
}

} // namespace

Status check_erasable(const Camera& camera)
{
    if (camera.has_spi_flash())
        return {};
    return {Reason::kNotSupported,
            camera.name() + " has an EEPROM, which cannot be erased; an upgrade overwrites it"};
}

uint32_t erased_bytes(const Camera& camera)
{
    return std::min<uint32_t>(camera.rom_size(), NYXUS_FW_BIN_CAPACITY);
}

Report erase(Camera& camera, const Backups& backups, const Caller& caller, bool backup)
{
    Report report{.version_before = camera.version()};
    report.status = do_erase(camera, backups, caller, backup, report);
    report.stopped = report.stopped || report.status.reason() == Reason::kStopped;
    return report;
}

} // namespace nyxus::engine
