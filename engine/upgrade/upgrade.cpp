// SPDX-License-Identifier: Apache-2.0
#include "installation.h"
#include "report/phase_scope.h"

namespace nyxus::engine {

namespace {

/// Keeps what the upgrade replaces, and tells what it does not keep.
Status back_up(const Task& task, const Plan& plan, Bytes before)
{
    if (plan.reserved_area != ReservedArea::kKept) {
        tell(task.caller, {.kind = Event::Kind::kReservedArea,
                           .certain = plan.reserved_area == ReservedArea::kErased});
    }
    if (!task.options.backup)
        return {};
    return keep_backup(task.camera, task.backups, before, task.caller, task.report);
}

Status do_upgrade(const Task& task)
{
    if (Status fit = check_images(task.camera, task.images); !fit)
        return fit;
    std::vector<uint8_t> before;
    if (!task.options.always || task.options.backup) {
        tell_outlook(task.caller, RomContents::kUnchanged);
        auto read = read_rom(task.camera, 0, replaced_bytes(task.camera), task.caller);
        if (!read)
            return read.status();
        before = *std::move(read);
    }
    const Plan plan = plan_upgrade(task.camera, task.images, task.options, before);
    if (!task.options.always && is_up_to_date(plan, before)) {
        task.report.up_to_date = true;
        note_up_to_date(
            task.camera, task.backups,
            {.operation = task.options.operation, .image = task.images.firmware.bytes()});
        task.report.rom = RomContents::kNew;
        return {};
    }
    if (Status kept = back_up(task, plan, before); !kept)
        return kept;
    return install(task, plan);
}

} // namespace

Report upgrade(Camera& camera, const Images& images, const UpgradeOptions& options,
               const Backups& backups, const Caller& caller)
{
    Report report;
    report.status = do_upgrade({camera, images, options, backups, caller, report});
    report.stopped = report.stopped || report.status.reason() == Reason::kStopped;
    return report;
}

} // namespace nyxus::engine
