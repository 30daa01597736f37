// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/arguments.h"
#include "command_line/command_line.h"
#include "session/camera.h"
#include "terminal/console.h"
#include "terminal/events.h"
#include "terminal/exit_codes.h"

#include <nyxus/engine/images.hpp>

namespace tool {

// Each declares commands with their options.
void add_list_command(Command& app, Arguments& arguments);
void add_info_command(Command& app, Arguments& arguments);
void add_doctor_command(Command& app, Arguments& arguments);
void add_image_command(Command& app, Arguments& arguments);
void add_rom_commands(Command& app, Arguments& arguments);
void add_backups_command(Command& app, Arguments& arguments);
void add_manifest_command(Command& app, Arguments& arguments);
void add_explain_command(Command& app, Arguments& arguments);
/// All of them.
void add_all_commands(Command& app, Arguments& arguments);

ExitCode run_upgrade(Console& console, const Arguments& arguments);
ExitCode run_batch(Console& console, const Arguments& arguments); ///< upgrade --all
/// upgrade --all --dry-run: plans for one camera after the other; the worst exit code of them.
ExitCode plan_batch(Console& console, const Arguments& arguments, const Run& plan);
ExitCode run_erase(Console& console, const Arguments& arguments);
ExitCode run_dump(Console& console, const Arguments& arguments);
ExitCode run_compare(Console& console, const Arguments& arguments);
ExitCode run_reset(Console& console, const Arguments& arguments);
ExitCode run_recover(Console& console, const Arguments& arguments);

/// The chosen camera, opened and probed. With --wait it may still be plugged in.
Camera open_chosen(Console& console, const Arguments& arguments,
                   engine::Use use = engine::Use::kTransfers);
/// The same, with an external ROM that can be read and written.
Camera open_with_rom(Console& console, const Arguments& arguments);
/// The cameras that match the user's choice; with --wait they may still be plugged in.
std::vector<CameraEntry> matching_cameras(Console& console, const Arguments& arguments);

/// Restarts the camera, waits for its return and says how it came back, which is returned as well.
/// A Failure when it does not run from its ROM, or not what was programmed, or does not report the
/// version of the images, if any.
std::string start_new_firmware(Console& console, const Arguments& arguments, Camera camera,
                               Result& result, const engine::Images* images = nullptr);

} // namespace tool
