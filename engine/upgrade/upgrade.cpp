// SPDX-License-Identifier: Apache-2.0
#include "installation.h"

#include <algorithm>

#include "report/phase_scope.h"

namespace nyxus::engine {

namespace {

void tell_parts(const Task& task, Event::Kind kind, const std::vector<Part>& parts)
{
    for (const Part& part : parts)
        tell(task.caller, {.kind = kind, .text = to_text(part)});
}

void tell_versions(const Task& task)
{
    const Firmware& firmware = task.images.firmware;
    const std::string change = version_change(task.report.version_before, task.images.version());
    tell(task.caller, {.kind = Event::Kind::kInstalls,
                       .text = change + ", image with SHA-256 " + firmware.digest(),
                       .version = task.report.version_before});
}

void tell_what_stays(const Task& task, const Plan& plan)
{
    for (const Part& part : plan.kept)
        task.report.kept.push_back(to_text(part));
    tell_parts(task, Event::Kind::kKept, plan.kept);
    tell_parts(task, Event::Kind::kNotKept, plan.lost);
    tell_parts(task, Event::Kind::kNotKept, plan.unreachable);
}

/// Keeps what the upgrade replaces.
Status back_up(const Task& task, Bytes before)
{
    if (!task.options.backup)
        return {};
    return keep_backup(task.camera, task.backups, before, task.caller, task.report);
}

Status read_again(const Task& task, const Plan& plan, std::vector<uint8_t>& before)
{
    const bool planned =
        std::ranges::find(plan.steps, Action::kReadAgain, &Step::action) != plan.steps.end();
    return planned ? confirm_rom(task.camera, 0, before, task.caller) : Status();
}

Status do_upgrade(const Task& task)
{
    if (Status fit = check_images(task.camera, task.images); !fit)
        return fit;
    if (!task.images.patched)
        tell_versions(task);
    std::vector<uint8_t> before;
    const auto plan = [&] { return plan_upgrade(task.camera, task.images, task.options, before); };
    if (const uint32_t size = bytes_before(task.camera, task.options); size > 0) {
        tell_outlook(task.caller, RomContents::kUnchanged);
        auto read = read_rom(task.camera, 0, size, task.caller);
        if (!read)
            return read.status();
        before = *std::move(read);
    }
    const auto is_done = [&] { return !task.options.always && is_up_to_date(plan(), before); };
    if (!is_done()) {
        if (Status same = read_again(task, plan(), before); !same)
            return same;
    }
    if (is_done()) { // perhaps only the second reading has said so
        task.report.up_to_date = true;
        note_up_to_date(task.camera, task.backups,
                        {.operation = task.options.operation,
                         .image = task.images.firmware.bytes(),
                         .file = task.images.firmware.digest()});
        task.report.rom = RomContents::kNew;
        return {};
    }
    const Plan sure = plan();
    tell_what_stays(task, sure);
    if (Status kept = back_up(task, before); !kept)
        return kept;
    return install(task, sure, before);
}

} // namespace

std::string version_change(const std::string& before, const std::string& after)
{
    const bool has_version = before.starts_with("0x");
    const std::string from = has_version ? "from version " + before : "from the " + before;
    return after.empty() ? from : from + (has_version ? " to " : " to version ") + after;
}

Report upgrade(Camera& camera, const Images& images, const UpgradeOptions& options,
               const Backups& backups, const Caller& caller)
{
    Report report{.version_before = camera.version()};
    report.status = do_upgrade({camera, images, options, backups, caller, report});
    report.stopped = report.stopped || report.status.reason() == Reason::kStopped;
    return report;
}

} // namespace nyxus::engine
