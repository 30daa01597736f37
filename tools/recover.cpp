// SPDX-License-Identifier: Apache-2.0
#include "backup.h"
#include "commands.h"
#include "failure.h"
#include "image_file.h"
#include "install.h"
#include "text.h"

namespace tool {

namespace {

void refuse_healthy(const Camera& camera, bool force)
{
    if (!force && camera.runs_external_firmware())
        throw Failure(kExitProtected,
                      camera.name() + " " + firmware_sentence(camera) +
                          ", so there is nothing to recover; 'nyxus upgrade' replaces it, and "
                          "'--force' recovers all the same");
}

std::string chosen_file(const Camera& camera, const std::string& file)
{
    if (!file.empty())
        return file;
    const auto backup = newest_backup(camera.entry());
    if (!backup)
        throw Failure(kExitFailure, "there is no backup of " + camera.name() + " in '" +
                                        backup_folder().string() +
                                        "'; 'nyxus recover FILE' takes another file");
    return backup->string();
}

} // namespace

ExitCode run_recover(Console& console, const Arguments& arguments)
{
    Camera camera = open_with_rom(console, arguments);
    refuse_healthy(camera, arguments.force);
    const std::string file = chosen_file(camera, arguments.file);
    load_rom_contents(file);
    check_images(camera, false);
    console.drain();
    console.display().say("recovering " + camera.name() + " from '" + file + "'");
    if (!arguments.skip_backup)
        back_up(console, camera, read_replaced(console, camera));
    install(console, camera, arguments, false);
    console.display().say(format("recovered: %zu bytes", firmware().size()) +
                          (arguments.skip_verify ? ", not read back" : ", read back and equal"));
    if (arguments.reset)
        restart(console, std::move(camera), arguments.return_wait_s());
    else
        console.display().say("the firmware starts with the next reset: run 'nyxus reset'");
    return kExitOk;
}

} // namespace tool
