// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "rom/programming.h"
#include "session/choose.h"
#include "terminal/text.h"

#include <algorithm>

namespace tool {

namespace {

struct RecoverArguments {
    Programming how;
    std::string file; ///< "" for the latest backup
    bool although_healthy = false;
};

const char* advice_for(engine::Reason reason, const std::string& file)
{
    if (reason == engine::Reason::kNothingToRecover)
        return "'nyxus upgrade' replaces it, and '--force' recovers all the same";
    return file.empty() ? "'nyxus recover FILE' takes another file" : "";
}

/// The user's choice; a Failure with the list when nobody can be asked.
std::string choose_backup(Console& console, const engine::Status& why,
                          const std::vector<engine::Backup>& candidates)
{
    std::string list;
    for (size_t i = 0; i < candidates.size(); ++i) {
        const engine::Backup& backup = candidates[i];
        list +=
            format("\n%3zu  ", i + 1) + printable(backup.file.string()) + "\n     " +
            printable(backup.time + ", serial " + (backup.serial.empty() ? "-" : backup.serial) +
                      ", port " + (backup.port.empty() ? "?" : backup.port) +
                      ", started: " + to_text(backup.started));
    }
    console.drain();
    const Unwatched unwatched(console);
    const size_t choice = console.display().choose(why.message() + ":" + list, candidates.size());
    if (choice > 0)
        return candidates[choice - 1].file.string();
    throw failure_of(why, "name one of these: 'nyxus recover FILE'" + list);
}

/// Where a key is trusted, a camera gets nothing back but what has been in it.
void refuse_foreign_file(const Camera& camera, const engine::Backups& backups,
                         const std::string& file)
{
    if (file.empty())
        return;
    const std::vector<engine::Backup> own = backups.candidates(camera);
    if (std::ranges::find(own, std::filesystem::path(file), &engine::Backup::file) == own.end())
        require(value_of(find_trust(engine::TrustFolders::usual())).check_bare_image(file));
}

/// What the camera is to hold.
engine::Images choose(Console& console, const Camera& camera, const RecoverArguments& wanted)
{
    const engine::Backups backups;
    refuse_foreign_file(camera, backups, wanted.file);
    auto found = engine::find_recovery(camera, backups, wanted.file, wanted.although_healthy);
    if (found.status().reason() == engine::Reason::kUncertainBackup) {
        const std::string file = choose_backup(console, found.status(), backups.candidates(camera));
        found = engine::find_recovery(camera, backups, file, true);
    }
    if (!found)
        throw failure_of(found.status(), advice_for(found.status().reason(), wanted.file));
    console.drain();
    console.display().note("recovering " + camera.name() + " from " + in_quotes(found->file));
    return std::move(found->images);
}

/// What --dry-run does in its place.
ExitCode plan_recovery(Console& console, const Arguments& arguments, const RecoverArguments& wanted)
{
    Camera camera = open_with_rom(console, arguments, wanted.how.eeprom_kib);
    const engine::Images images = choose(console, camera, wanted);
    const engine::UpgradeOptions options = upgrade_options(arguments, wanted.how);
    const std::vector<uint8_t> before = read_before(console, camera, options);
    engine::Plan plan = plan_upgrade(camera, images, options, before);
    if (wanted.how.restart)
        plan.steps.push_back({engine::Action::kRestart});
    print_plan(console, arguments, camera, images, plan);
    return kExitOk;
}

ExitCode run_recover(Console& console, const Arguments& arguments, const RecoverArguments& wanted)
{
    if (arguments.dry_run)
        return plan_recovery(console, arguments, wanted);
    return run_with_result(console, arguments, [&](Result& result) {
        Camera camera =
            introduce(console, result, open_with_rom(console, arguments, wanted.how.eeprom_kib));
        const engine::Images images = choose(console, camera, wanted);
        program(console, camera, arguments, wanted.how, images, result);
        finish(console, result, "recovered: " + what_is_done(wanted.how, images, result));
        if (wanted.how.restart) {
            start_new_firmware(console, arguments, std::move(camera), result);
        } else {
            console.display().note("the firmware starts with the next reset: run 'nyxus reset'");
        }
        return kExitOk;
    });
}

} // namespace

void add_recover_command(Command& app, Arguments& arguments)
{
    Command& command =
        add_command(app, "recover", "Restore the firmware of a camera that runs its mask ROM",
                    "-c A0001234 --reset");
    auto& wanted = set_run<RecoverArguments>(command, arguments, run_recover);
    wanted.how.always = true; // what it holds is not looked at
    wanted.how.operation = "recover";
    command.file("FILE", &wanted.file,
                 "Backup or image to restore; without: the camera's latest backup");
    command.flag("--force", &wanted.although_healthy, "Do it to a camera that runs fine, too");
    add_programming(command, arguments, wanted.how);
}

} // namespace tool
