// SPDX-License-Identifier: Apache-2.0
#include "commands.h"

#include "command_line/help.h"
#include "features/feature.h"

namespace tool {

namespace {

struct Declaration {
    const char* group;
    void (*declare)(Command&, Arguments&);
};

constexpr char kLook[] = "Find cameras and trouble";
constexpr char kFirmware[] = "Firmware";
constexpr char kPicture[] = "Picture and video";
constexpr char kBoard[] = "Controller and board";
constexpr char kHelp[] = "Help";

/// Those that are used most stand beside the others, too.
void add_rom_commands(Command& app, Arguments& arguments)
{
    add_read_command(app, arguments, "dump");
    add_compare_command(app, arguments, "compare");
    add_erase_command(app, arguments);
    Command& rom = add_command(app, "rom", "Look at the ROM and change parts of it", "map");
    rom.needing_command();
    add_map_command(rom, arguments);
    add_read_command(rom, arguments, "read");
    add_write_command(rom, arguments);
    add_compare_command(rom, arguments, "verify");
    add_erase_command(rom, arguments);
}

// In the order of the help.
// clang-format off
constexpr Declaration declarations[] = {
//   group       declares
    {kLook,      add_list_command},
    {kLook,      add_watch_command},
    {kLook,      add_info_command},
    {kLook,      add_doctor_command},
    {kFirmware,  add_image_command},
    {kFirmware,  add_upgrade_command},
    {kFirmware,  add_recover_command},
    {kFirmware,  add_reset_command},
    {kFirmware,  add_rom_commands},
    {kFirmware,  add_serial_command},
    {kFirmware,  add_manifest_command},
    {kFirmware,  add_backups_command},
    {kPicture,   add_snapshot_command},
    {kPicture,   add_stream_command},
    {kPicture,   add_formats_command},
    {kPicture,   add_control_command},
    {kPicture,   add_switch_commands},
    {kPicture,   add_osd_command},
    {kPicture,   add_h264_command},
    {kPicture,   add_motion_command},
    {kBoard,     add_led_command},
    {kBoard,     add_gpio_command},
    {kBoard,     add_memory_commands},
    {kBoard,     add_fingerprint_command},
    {kHelp,      add_explain_command},
    {kHelp,      add_help_command},
};
// clang-format on

} // namespace

void add_all_commands(Command& app, Arguments& arguments)
{
    for (const Declaration& row : declarations) {
        app.heading(row.group);
        row.declare(app, arguments);
    }
}

} // namespace tool
