// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "dry_run.h"
#include "follower.h"
#include "json_text.h"
#include "programming.h"
#include "result.h"
#include "text.h"

namespace tool {

namespace {

void print_nothing_to_do(Console& console, const Arguments& arguments, Camera& camera)
{
    Members values = json_of(label_of(camera));
    values.push_back({"steps", Value::List()});
    values.push_back({"message", kUpToDate});
    print_dry_run(console, arguments, camera,
                  arguments.all ? camera.name() + ": " + kUpToDate : kUpToDate, values, {});
}

/// What --dry-run does in its place.
ExitCode plan_upgrade(Console& console, const Arguments& arguments)
{
    const Offer offer = load_images(arguments);
    const engine::UpgradeOptions options = upgrade_options(arguments);
    Camera camera = open_with_rom(console, arguments);
    const Chosen chosen = choose_images(arguments, offer, camera);
    const engine::Images& images = chosen.images.images;
    const std::vector<uint8_t> before = read_before(console, arguments, camera, options);
    if (!options.always && is_up_to_date(plan_upgrade(camera, images, options), before)) {
        print_nothing_to_do(console, arguments, camera);
    } else {
        print_plan(console, arguments, camera, images, options, before, chosen.versions);
    }
    return kExitOk;
}

void upgrade(Console& console, const Arguments& arguments, Result& result)
{
    const Offer offer = load_images(arguments);
    Camera camera = open_with_rom(console, arguments);
    result.camera = label_of(camera);
    promise_result(console, result);
    const Chosen chosen = choose_images(arguments, offer, camera);
    const engine::Images& images = chosen.images.images;
    console.drain();
    take(console, arguments, offer);
    console.display().note("upgrading " + camera.name() + " " + chosen.versions);
    const bool programmed = program(console, camera, arguments, images, result);
    result.message =
        programmed ? what_is_done(arguments, images) + "; " + chosen.versions : kUpToDate;
    console.display().say(result.message);
    if (arguments.reset) {
        start_new_firmware(console, arguments, std::move(camera), &chosen.images);
    } else if (programmed) {
        console.display().note("the new firmware starts with the next reset: run 'nyxus reset'");
    }
    result.outcome = programmed ? Outcome::kUpgraded : Outcome::kUpToDate;
}

} // namespace

ExitCode run_upgrade(Console& console, const Arguments& arguments)
{
    if (arguments.all) {
        return arguments.dry_run ? plan_batch(console, arguments, plan_upgrade)
                                 : run_batch(console, arguments);
    }
    if (arguments.dry_run)
        return plan_upgrade(console, arguments);
    return run_with_result(console, arguments, [&](Result& result) {
        upgrade(console, arguments, result);
        return kExitOk;
    });
}

} // namespace tool
