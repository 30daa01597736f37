// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "rom/programming.h"
#include "session/dry_run.h"
#include "session/follower.h"
#include "session/result.h"
#include "terminal/failure.h"

#include <nyxus/engine/upgrade.hpp>

namespace tool {

namespace {

void confirm(Console& console, const Camera& camera, bool yes)
{
    if (yes)
        return;
    console.drain();
    const Unwatched unwatched(console);
    if (!console.display().confirm("Erase the firmware of " + camera.name() + "?")) {
        throw Failure(kExitNotConfirmed,
                      "not confirmed, nothing was erased; '--yes' erases unasked");
    }
}

void erase(Console& console, const Arguments& arguments, Camera& camera, Result& result)
{
    Follower follower(console, arguments, consequence_of_erasing);
    const engine::Report report =
        engine::erase(camera, engine::Backups(), follower.caller(), !arguments.skip_backup);
    describe(result, report);
    if (report.stopped) {
        throw Failure(kExitInterrupted,
                      std::string("interrupted: ") + consequence_of_erasing(report.rom));
    }
    if (!report.status && report.rom == engine::RomContents::kIncomplete) {
        throw failure_of(report.status,
                         consequence_of_erasing(report.rom) + way_back(report.backup.string()));
    }
    if (!report.status)
        throw failure_of(report);
    result.message = "erased; after a reset the camera runs its mask ROM";
    console.display().say(result.message);
}

void print_plan(Console& console, const Arguments& arguments, Camera& camera)
{
    Cost cost = rom_unlock(camera) + rom_erase(camera) + rom_lock(camera) +
                whole_read(camera, erased_bytes(camera));
    if (!arguments.skip_backup)
        cost += whole_read_twice(camera, engine::replaced_bytes(camera));
    Value::List steps{Members{{"step", "erase"}}, Members{{"step", "read back"}}};
    if (!arguments.skip_backup)
        steps.insert(steps.begin(), Members{{"step", "back up"}});
    print_dry_run(console, arguments, camera, "erase the firmware of " + camera.name(),
                  {{"steps", steps}}, cost, kFlashTime);
}

} // namespace

ExitCode run_erase(Console& console, const Arguments& arguments)
{
    if (arguments.dry_run) {
        Camera camera = open_with_rom(console, arguments);
        require(engine::check_erasable(camera));
        print_plan(console, arguments, camera);
        return kExitOk;
    }
    return run_with_result(console, arguments, [&](Result& result) {
        Camera camera = open_with_rom(console, arguments);
        result.camera = label_of(camera);
        promise_result(console, result);
        require(engine::check_erasable(camera));
        confirm(console, camera, arguments.yes);
        erase(console, arguments, camera, result);
        return kExitOk;
    });
}

} // namespace tool
