// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "rom/programming.h"
#include "session/dry_run.h"
#include "session/follower.h"
#include "session/result.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

namespace tool {

namespace {

/// Whether it runs what its ROM holds, as far as that is known.
bool runs_its_rom(const Camera& camera)
{
    const engine::RomRecord rom = engine::Backups().history(camera).rom;
    return camera.runs_external_firmware() &&
           (rom == engine::RomRecord::kNone || rom == engine::RomRecord::kStarted);
}

/// Of a camera that is up to date; in a batch it is never restarted.
void print_restart_at_most(Console& console, const Arguments& arguments, Camera& camera)
{
    const engine::Step restart = {engine::Action::kRestart};
    const bool restarts = arguments.reset && !arguments.all && !runs_its_rom(camera);
    Members values = json_of(label_of(camera));
    Value::List steps;
    if (restarts)
        steps.emplace_back(Members{{"step", to_text(restart.action)}});
    values.push_back({"steps", steps});
    values.push_back({"message", kUpToDate});
    print_dry_run(
        console, arguments, camera,
        (arguments.all ? camera.name() + ": " : "") + kUpToDate + (restarts ? "\n  restart" : ""),
        values, restarts ? engine::cost_of(camera, restart) : Cost());
}

/// What --dry-run does in its place.
void plan_upgrade(Console& console, const Arguments& arguments, const Offer& offer)
{
    const engine::UpgradeOptions options = upgrade_options(arguments);
    Camera camera = open_with_rom(console, arguments);
    const engine::Images images = choose_images(arguments, offer, camera);
    const std::vector<uint8_t> before = read_before(console, arguments, camera, options);
    if (!options.always && is_up_to_date(plan_upgrade(camera, images, options), before)) {
        print_restart_at_most(console, arguments, camera);
    } else {
        print_plan(console, arguments, camera, images, options, before);
    }
}

void upgrade(Console& console, const Arguments& arguments, Result& result)
{
    const Offer offer = load_images(arguments);
    Camera camera = open_with_rom(console, arguments);
    result.camera = label_of(camera);
    result.version_before = camera.version();
    promise_result(console, result);
    const engine::Images images = choose_images(arguments, offer, camera);
    describe(result, images);
    promise_result(console, result);
    console.drain();
    take(console, arguments, offer);
    console.display().note("upgrading " + camera.name());
    const bool programmed = program(console, camera, arguments, images, result);
    result.message = programmed ? what_is_done(arguments, images, result) : kUpToDate;
    console.display().say(result.message);
    if (arguments.reset && !programmed && runs_its_rom(camera)) {
        console.display().note("not restarted: the camera runs what its ROM holds");
    } else if (arguments.reset) {
        start_new_firmware(console, arguments, std::move(camera), result, &images);
    } else if (programmed) {
        console.display().note("the new firmware starts with the next reset: run 'nyxus reset'");
    }
    result.outcome = programmed ? Outcome::kUpgraded : Outcome::kUpToDate;
}

} // namespace

ExitCode run_upgrade(Console& console, const Arguments& arguments)
{
    if (arguments.dry_run) {
        const Offer offer = load_images(arguments); // once for all cameras
        const Run plan = [&offer](Console& shown, const Arguments& single) {
            plan_upgrade(shown, single, offer);
            return kExitOk;
        };
        return arguments.all ? plan_batch(console, arguments, plan) : plan(console, arguments);
    }
    if (arguments.all)
        return run_batch(console, arguments);
    return run_with_result(console, arguments, [&](Result& result) {
        upgrade(console, arguments, result);
        return kExitOk;
    });
}

} // namespace tool
