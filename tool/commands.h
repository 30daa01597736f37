// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command_line.h"
#include "session/camera.h"

// Each declares commands with their options. Those of single features: features/feature.h.
namespace tool {

void add_list_command(Command& app, Arguments& arguments);
void add_watch_command(Command& app, Arguments& arguments);
void add_info_command(Command& app, Arguments& arguments);
void add_doctor_command(Command& app, Arguments& arguments);
void add_explain_command(Command& app, Arguments& arguments);
void add_image_command(Command& app, Arguments& arguments);
void add_upgrade_command(Command& app, Arguments& arguments);
void add_recover_command(Command& app, Arguments& arguments);
void add_reset_command(Command& app, Arguments& arguments);
void add_serial_command(Command& app, Arguments& arguments);
void add_backups_command(Command& app, Arguments& arguments);
void add_manifest_command(Command& app, Arguments& arguments);
void add_map_command(Command& parent, Arguments& arguments);
void add_write_command(Command& parent, Arguments& arguments);
// Some go by two names.
void add_read_command(Command& parent, Arguments& arguments, const char* name);
void add_compare_command(Command& parent, Arguments& arguments, const char* name);
void add_erase_command(Command& parent, Arguments& arguments);
/// All of them.
void add_all_commands(Command& app, Arguments& arguments);

} // namespace tool
