// SPDX-License-Identifier: Apache-2.0
#include "rom/upgrade.h"

#include "commands.h"
#include "session/choose.h"
#include "session/dry_run.h"
#include "session/run.h"
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

/// What --dry-run does in its place.
ExitCode plan_upgrade(Console& console, const Arguments& arguments, const UpgradeArguments& wanted,
                      const Offer& offer)
{
    const engine::UpgradeOptions options = upgrade_options(arguments, wanted.how);
    Camera camera = open_with_rom(console, arguments, wanted.how.eeprom_kib);
    const engine::Images images = choose_images(wanted.sources, offer, camera);
    const std::vector<uint8_t> before = read_before(console, camera, options);
    engine::Plan plan = plan_upgrade(camera, images, options, before);
    const bool is_done = !options.always && is_up_to_date(plan, before);
    if (is_done)
        plan = {};
    if (wanted.how.restart && (!is_done || (!arguments.turn && !runs_its_rom(camera))))
        plan.steps.push_back({engine::Action::kRestart});
    print_plan(console, arguments, camera, images, plan);
    return kExitOk;
}

ExitCode upgrade(Console& console, const Arguments& arguments, const UpgradeArguments& wanted,
                 Result& result)
{
    const Offer offer = load_images(wanted.sources);
    Camera camera =
        introduce(console, result, open_with_rom(console, arguments, wanted.how.eeprom_kib));
    const engine::Images images = choose_images(wanted.sources, offer, camera);
    console.drain();
    take(console, arguments, offer);
    console.display().note("upgrading " + camera.name());
    const bool programmed = program(console, camera, arguments, wanted.how, images, result);
    finish(console, result,
           programmed ? "upgraded: " + what_is_done(wanted.how, images, result) : kUpToDate,
           programmed ? Outcome::kUpgraded : Outcome::kUpToDate);
    if (wanted.how.restart && !programmed && runs_its_rom(camera)) {
        console.display().note("not restarted: the camera runs what its ROM holds");
    } else if (wanted.how.restart) {
        start_new_firmware(console, arguments, std::move(camera), result, &images);
    } else if (programmed) {
        console.display().note("the new firmware starts with the next reset: run 'nyxus reset'");
    }
    return kExitOk;
}

ExitCode run_upgrade(Console& console, const Arguments& arguments, const UpgradeArguments& wanted)
{
    if (wanted.all && !wanted.sources.mfi_serial.empty()) {
        throw Failure(kExitUsage,
                      "--mfi-serial would give all cameras the same serial number; "
                      "upgrade them one by one");
    }
    if (arguments.dry_run) {
        const Offer offer = load_images(wanted.sources); // once for all cameras
        const Run plan = [&](Console& shown, const Arguments& single) {
            return plan_upgrade(shown, single, wanted, offer);
        };
        return wanted.all ? run_for_each(console, arguments, plan) : plan(console, arguments);
    }
    if (wanted.all)
        return run_batch(console, arguments, wanted);
    return run_with_result(console, arguments, [&](Result& result) {
        return upgrade(console, arguments, wanted, result);
    });
}

} // namespace

void add_upgrade_command(Command& app, Arguments& arguments)
{
    constexpr unsigned kMostJobs = 256;
    Command& command =
        add_command(app, "upgrade", "Program a firmware image, read it back and compare",
                    "camera.bin --mfi mfi.bin --mfi-serial A0001234 --reset");
    auto& wanted = set_run<UpgradeArguments>(command, arguments, run_upgrade);
    Sources& sources = wanted.sources;
    command.file("FILE", &sources.file, "Firmware image, - is standard input; without: --manifest");
    const Option& manifest =
        command.file("--manifest", &sources.manifest,
                     "Manifest, which names the images by chip, for any mixture of cameras");
    command.text("--sha256", &sources.sha256, "Digest that the firmware image has to have")
        .shown_as("HEX")
        .excluding(manifest);
    command.file("--mfi", &sources.mfi_file, "MFi image to program beside it").excluding(manifest);
    command
        .text("--mfi-serial", &sources.mfi_serial,
              "MFi serial number to write into the MFi image before")
        .shown_as("TEXT");
    command.flag("--allow-downgrade", &sources.allow_downgrade,
                 "Also from a newer version to an older one");
    command.flag("--force", &wanted.how.always, "Program it even if the ROM equals the image");
    add_programming(command, arguments, wanted.how);
    const Option& all = command.flag("--all", &wanted.all, "Upgrade every camera, all at once");
    command.number("--jobs", &wanted.jobs, {1, kMostJobs}, "With --all: so many at a time [all]")
        .shown_as("N")
        .needing(all);
}

} // namespace tool
