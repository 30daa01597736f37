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

// In the order of the help.
// clang-format off
constexpr Declaration declarations[] = {
//   group       declares
    {kLook,      add_list_command},
    {kLook,      add_info_command},
    {kLook,      add_doctor_command},
    {kFirmware,  add_image_command},
    {kFirmware,  add_rom_commands},
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
    {kBoard,     add_i2c_command},
    {kBoard,     add_memory_commands},
    {kBoard,     add_reserved_command},
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
