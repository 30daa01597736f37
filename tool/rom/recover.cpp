// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "rom/programming.h"
#include "session/result.h"
#include "terminal/text.h"

#include <algorithm>

namespace tool {

namespace {

const char* advice_for(engine::Reason reason, const Arguments& arguments)
{
    if (reason == engine::Reason::kNothingToRecover)
        return "'nyxus upgrade' replaces it, and '--force' recovers all the same";
    return arguments.file.empty() ? "'nyxus recover FILE' takes another file" : "";
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
engine::Recovery choose(Console& console, const Camera& camera, const Arguments& arguments)
{
    const engine::Backups backups;
    refuse_foreign_file(camera, backups, arguments.file);
    auto found = engine::find_recovery(camera, backups, arguments.file, arguments.force);
    if (found.status().reason() == engine::Reason::kUncertainBackup) {
        const std::string file = choose_backup(console, found.status(), backups.candidates(camera));
        found = engine::find_recovery(camera, backups, file, true);
    }
    if (!found)
        throw failure_of(found.status(), advice_for(found.status().reason(), arguments));
    console.drain();
    console.display().note("recovering " + camera.name() + " from " + in_quotes(found->file));
    return *std::move(found);
}

/// What --dry-run does in its place.
ExitCode plan_recovery(Console& console, const Arguments& arguments)
{
    Camera camera = open_with_rom(console, arguments);
    const engine::Images images = choose(console, camera, arguments).images;
    engine::UpgradeOptions options = upgrade_options(arguments);
    options.always = true; // what it holds is not looked at
    print_plan(console, arguments, camera, images, options,
               read_before(console, arguments, camera, options));
    return kExitOk;
}

void recover(Console& console, const Arguments& arguments, Result& result)
{
    Camera camera = open_with_rom(console, arguments);
    result.camera = label_of(camera);
    result.version_before = camera.version();
    promise_result(console, result);
    const engine::Images images = choose(console, camera, arguments).images;
    describe(result, images);
    promise_result(console, result);
    Arguments always = arguments;
    always.force = true; // what it holds is not looked at
    always.operation = "recover";
    program(console, camera, always, images, result);
    result.message = format("recovered: %zu bytes", images.firmware.bytes().size()) +
                     (arguments.skip_verify ? ", not read back, " : ", read back and equal, ") +
                     engine::version_change(result.version_before, result.version);
    console.display().say(result.message);
    if (arguments.reset) {
        start_new_firmware(console, arguments, std::move(camera), result);
    } else {
        console.display().note("the firmware starts with the next reset: run 'nyxus reset'");
    }
}

} // namespace

ExitCode run_recover(Console& console, const Arguments& arguments)
{
    if (arguments.dry_run)
        return plan_recovery(console, arguments);
    return run_with_result(console, arguments, [&](Result& result) {
        recover(console, arguments, result);
        return kExitOk;
    });
}

} // namespace tool
