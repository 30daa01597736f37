// SPDX-License-Identifier: Apache-2.0
#include "backup.h"
#include "commands.h"
#include "failure.h"
#include "image_file.h"
#include "install.h"
#include "install_plan.h"
#include "result.h"
#include "text.h"

namespace tool {

namespace {

void refuse_healthy(const Camera& camera, bool force)
{
    if (!force && camera.runs_external_firmware()) {
        throw Failure(kExitNotConfirmed,
                      camera.name() + " " + firmware_sentence(camera) +
                          ", so there is nothing to recover; 'nyxus upgrade' replaces it, and "
                          "'--force' recovers all the same");
    }
}

std::string find_backup(const Camera& camera)
{
    const auto backup = newest_backup(camera.entry());
    if (!backup) {
        throw Failure(kExitFailure, "there is no backup of " + camera.name() + " in " +
                                        in_quotes(backup_folder().string()));
    }
    return backup->string();
}

std::string chosen_file(const Camera& camera, const std::string& file)
{
    try {
        return file.empty() ? find_backup(camera) : file;
    } catch (const Failure& failure) {
        throw Failure(failure.code(), failure.text() + "; 'nyxus recover FILE' takes another file");
    }
}

/// Loads what the camera is to hold; the file that this comes from.
std::string load_contents(const Camera& camera, const Arguments& arguments)
{
    refuse_healthy(camera, arguments.force);
    std::string file = chosen_file(camera, arguments.file);
    load_rom_contents(file);
    check_images(camera, false);
    return file;
}

/// What --dry-run does in its place.
ExitCode plan_recovery(Console& console, const Arguments& arguments)
{
    Camera camera = open_with_rom(console, arguments);
    const std::string file = load_contents(camera, arguments);
    console.display().note("recovering " + camera.name() + " from " + in_quotes(file));
    print_install_plan(console, arguments, camera, false, {});
    return kExitOk;
}

void recover(Console& console, const Arguments& arguments, Result& result)
{
    Camera camera = open_with_rom(console, arguments);
    result.camera = label_of(camera);
    promise_result(console, result);
    const std::string file = load_contents(camera, arguments);
    console.drain();
    console.display().note("recovering " + camera.name() + " from " + in_quotes(file));
    std::vector<uint8_t> before;
    if (!arguments.skip_backup)
        before = read_replaced(console, camera);
    back_up(console, camera, arguments, before);
    install(console, camera, arguments, false, result.rom);
    result.message = format("recovered: %zu bytes", firmware().size()) +
                     (arguments.skip_verify ? ", not read back" : ", read back and equal");
    result.bytes = firmware().size();
    console.display().say(result.message);
    if (arguments.reset) {
        start_new_firmware(console, std::move(camera), arguments.return_wait_s());
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
