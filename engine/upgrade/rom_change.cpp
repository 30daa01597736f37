// SPDX-License-Identifier: Apache-2.0
#include "rom_change.h"

#include "report/phase_scope.h"
#include "rom/writer.h"
#include "units/digest.h"

namespace nyxus::engine {

namespace {

Status nothing_written(const Status& status)
{
    return {status.reason(), status.message() + "; nothing was written", status.code(),
            status.where()};
}

} // namespace

void tell_outlook(const Caller& caller, RomContents rom, bool stop_waits)
{
    tell(caller, {.kind = Event::Kind::kOutlook, .rom = rom, .stop_waits = stop_waits});
}

Status keep_backup(const Camera& camera, const Backups& backups, Bytes contents,
                   const Caller& caller, Report& report)
{
    if (is_blank(contents))
        return {};
    auto log = UnitLog::of(backups, camera);
    if (!log) {
        return nothing_written(
            {Reason::kBackupNotKept, "cannot keep a backup of the ROM: " + log.status().message()});
    }
    const auto kept = log->keep(camera, contents);
    if (!kept)
        return nothing_written(kept.status());
    report.backup = kept->file;
    tell(caller, {.kind = Event::Kind::kBackup, .text = report.backup.string()});
    return {};
}

Status keep_rom(Camera& camera, const Backups& backups, const Caller& caller, Report& report)
{
    tell_outlook(caller, RomContents::kUnchanged);
    const auto before = read_rom_twice(camera, 0, replaced_bytes(camera), caller);
    return before ? keep_backup(camera, backups, *before, caller, report) : before.status();
}

void note_in_journal(const Camera& camera, const Backups& backups, JournalStep step)
{
    // Where it cannot be noted, the journal goes on saying what is worse.
    if (auto log = UnitLog::of(backups, camera); log)
        (void)log->note(step);
}

static JournalLine facts_of(const Change& change, const Camera& camera)
{
    return {.operation = change.operation,
            .running = camera.running(),
            .image = change.image.empty() ? "" : sha256(change.image),
            .file = change.file,
            .serial = change.serial,
            .kept = change.kept};
}

void note_up_to_date(const Camera& camera, const Backups& backups, const Change& change)
{
    auto log = UnitLog::of(backups, camera);
    if (!log || !log->identity().unit)
        return;
    const RomRecord rom = log->history(camera.running()).rom;
    const bool is_better =
        rom == RomRecord::kIncomplete || rom == RomRecord::kBlank || rom == RomRecord::kWritten;
    if (is_better && log->begin(facts_of(change, camera)))
        (void)log->note(JournalStep::kVerified);
}

RomChange::RomChange(Camera& camera, const Backups& backups, const Caller& caller, Report& report)
    : camera_(camera), caller_(caller), report_(report), log_(UnitLog::of(backups, camera))
{
}

Status RomChange::opens(const Change& change)
{
    if (!log_) {
        return {Reason::kJournalNotKept,
                "cannot keep the journal of the ROM: " + log_.status().message()};
    }
    JournalLine facts = facts_of(change, camera_);
    facts.backup = report_.backup.stem().string();
    if (Status begun = log_->begin(std::move(facts)); !begun)
        return begun;
    is_open_ = true;
    tell_outlook(caller_, RomContents::kIncomplete, true);
    return {};
}

Status RomChange::begins(JournalStep step)
{
    if (latest_ == step)
        return {};
    const bool is_first = !latest_;
    latest_ = step;
    if (Status noted = log_->note(step); !noted && is_first) {
        (void)enable_writing(camera_, false, caller_);
        return noted;
    }
    report_.rom = RomContents::kIncomplete;
    return {};
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
    if (report_.rom == RomContents::kUnchanged && !status)
        status = nothing_written(status);
    if (!is_open_)
        return status;
    look_for_stop();
    if (status && latest_ == JournalStep::kWriting)
        (void)log_->note(JournalStep::kWritten); // else the journal goes on saying what is worse
    tell_outlook(caller_, report_.rom);
    return status && report_.stopped ? stopped() : std::move(status);
}

} // namespace nyxus::engine
