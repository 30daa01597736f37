// SPDX-License-Identifier: Apache-2.0
#include "installation.h"

#include "keeping.h"
#include "report/phase_scope.h"
#include "rom/writer.h"
#include "text/format.h"

namespace nyxus::engine {

namespace {

bool is_image(const Step& step)
{
    return step.action == Action::kWriteMfi || step.action == Action::kWriteFirmware ||
           step.action == Action::kWriteHeader;
}

uint64_t image_bytes(const Plan& plan)
{
    uint64_t bytes = 0;
    for (const Step& step : plan.steps)
        bytes += is_image(step) ? step.size : 0;
    return bytes;
}

uint64_t bytes_to_write(const Plan& plan)
{
    uint64_t bytes = image_bytes(plan);
    for (const Part& part : plan.kept) {
        for (const auto& [offset, pages] : pages_in_use(part.address, part.data))
            bytes += pages.size();
    }
    return bytes;
}

/// The steps that change the ROM, and the phase that the writing ones share.
class Programming {
public:
    Programming(const Task& task, const Plan& plan, RomChange& change, Footprint& footprint)
        : task_(task), plan_(plan), change_(change), footprint_(footprint)
    {
    }

    Status run()
    {
        for (const Step& step : plan_.steps) {
            change_.look_for_stop();
            if (Status done = run(step); !done)
                return done;
        }
        return {};
    }

private:
    Status run(const Step& step)
    {
        switch (step.action) {
            case Action::kUnlock:
                return enable_writing(task_.camera, true, task_.caller);
            case Action::kErase:
                return erase();
            case Action::kWriteMfi:
            case Action::kWriteFirmware:
            case Action::kWriteHeader:
                return write(step.address, step.data);
            case Action::kWriteKept:
                return write_kept(step);
            case Action::kLock:
                // The firmware is complete, so a ROM that stays unlocked does not fail the upgrade.
                scope_->end();
                task_.report.left_unlocked =
                    !enable_writing(task_.camera, false, task_.caller).ok();
                return {};
            default:
                return {};
        }
    }

    Status erase()
    {
        if (Status noted = change_.begins(JournalStep::kErasing); !noted)
            return noted;
        footprint_.begins(0, std::vector<uint8_t>(footprint_.size(), 0xFF));
        Status erased = erase_flash(task_.camera, task_.caller);
        if (erased)
            footprint_.settles(footprint_.size());
        return erased;
    }

    Status write_kept(const Step& step)
    {
        for (const auto& [offset, pages] : pages_in_use(step.address, step.data)) {
            if (Status written = write(step.address + offset, pages); !written)
                return written;
        }
        return {};
    }

    Status write(uint32_t address, Bytes bytes)
    {
        if (Status noted = change_.begins(JournalStep::kWriting); !noted)
            return noted;
        if (!scope_)
            scope_.emplace(task_.caller, Phase::kProgramming, bytes_to_write(plan_));
        footprint_.begins(address, bytes);
        return write_rom(task_.camera, address, bytes, [this](uint32_t written) {
            footprint_.settles(written);
            scope_->advance(written);
            change_.look_for_stop();
        });
    }

    const Task& task_;
    const Plan& plan_;
    RomChange& change_;
    Footprint& footprint_;
    std::optional<PhaseScope> scope_;
};

Status program(const Task& task, const Plan& plan, Footprint& footprint)
{
    Report& report = task.report;
    RomChange change(task.camera, task.backups, task.caller, report);
    Status done = change.opens({.operation = task.options.operation,
                                .image = task.images.firmware.bytes(),
                                .file = task.images.firmware.digest(),
                                .serial = task.images.mfi ? task.images.mfi->serial() : "",
                                .kept = report.kept});
    if (done)
        done = Programming(task, plan, change, footprint).run();
    if (done) {
        report.rom = RomContents::kUnverified;
        report.bytes = image_bytes(plan);
    }
    return change.end(std::move(done));
}

Status verify(const Task& task, const Step& step)
{
    const Phase phase =
        step.action == Action::kReadBackMfi ? Phase::kVerifyingMfi : Phase::kVerifying;
    const auto read = read_back(task.camera, step.address, step.data, task.caller, phase);
    if (!read)
        return read.status();
    const Difference difference = find_difference(*read, step.data);
    if (difference.count == 0)
        return {};
    task.report.rom = RomContents::kIncomplete;
    note_in_journal(task.camera, task.backups, JournalStep::kDiffers);
    const size_t first = difference.first_offsets.front();
    return {
        Reason::kMismatch,
        text::format("the ROM does not hold what was written: %zu of %u bytes differ, the "
                     "first one at 0x%04zX (ROM %02X, %s %02X)",
                     difference.count, step.size, step.address + first, (*read)[first],
                     step.action == Action::kReadBackKept ? "before" : "image", step.data[first])};
}

Status program_and_verify(const Task& task, const Plan& plan, Footprint& footprint)
{
    if (task.caller.stop.stop_requested())
        return stopped();
    if (task.report.rom != RomContents::kUnverified) { // else it was lost while it was read back
        if (Status done = program(task, plan, footprint); !done)
            return done;
    }
    if (!task.options.verify)
        return {};
    for (const Step& step : plan.steps) {
        if (step.action != Action::kReadBack && step.action != Action::kReadBackMfi &&
            step.action != Action::kReadBackKept)
            continue;
        if (Status equal = verify(task, step); !equal)
            return equal;
    }
    task.report.rom = RomContents::kNew;
    note_in_journal(task.camera, task.backups, JournalStep::kVerified);
    tell_outlook(task.caller, RomContents::kNew);
    return {};
}

} // namespace

Status install(const Task& task, const Plan& plan, Bytes before)
{
    // Behind these, the block erase of some parts leaves what was there.
    Footprint footprint(std::min<uint32_t>(replaced_bytes(task.camera), NYXUS_FW_BIN_CAPACITY),
                        before);
    Status done = program_and_verify(task, plan, footprint);
    if (done.reason() != Reason::kCameraGone || task.report.stopped)
        return done;
    tell(task.caller, {.kind = Event::Kind::kLost, .rom = task.report.rom, .status = done});
    if (Status back = await_return(task, plan, footprint); !back) {
        if (back.reason() == Reason::kStopped || back.reason() == Reason::kJournalNotKept)
            return back;
        return {Reason::kCameraGone, back.message() + "; before: " + done.message(), done.code(),
                done.where()};
    }
    tell(task.caller, {.kind = Event::Kind::kRetries, .text = task.camera.name()});
    return program_and_verify(task, plan, footprint);
}

} // namespace nyxus::engine
