// SPDX-License-Identifier: Apache-2.0
#include "command_line.h"
#include "commands.h"
#include "json_text.h"

namespace tool {

namespace {

Values json_entry(const CameraEntry& entry, const Openable& openable)
{
    Values object = {
        {"bus", entry.bus},
        {"address", entry.address},
        {"port_path", entry.port_path},
        {"serial", entry.serial},
        {"product", entry.product},
        {"openable", openable.libusb_code == 0},
    };
    if (openable.libusb_code != 0)
        object["reason"] = openable.reason;
    return object;
}

ExitCode run_list(Console& console, const Arguments& arguments)
{
    const std::vector<CameraEntry> cameras = matching_cameras(console, arguments);
    Values array = Values::array();
    std::string lines = "CAMERA  PORT     SERIAL           PRODUCT";
    for (const CameraEntry& entry : cameras) {
        const Openable openable = try_open(entry);
        array.push_back(json_entry(entry, openable));
        lines += "\n" + entry.description();
        if (openable.libusb_code != 0)
            lines += "\n        cannot be opened: " + openable.reason;
    }
    if (arguments.json)
        console.display().say(json_text(array));
    if (cameras.empty())
        select_camera(UsbSession().cameras(), arguments.camera); // says what is wrong
    else if (!arguments.json)
        console.display().say(lines);
    return kExitOk;
}

} // namespace

void add_list_command(CLI::App& app, Arguments& arguments)
{
    CLI::App* command = add_command(app, "list", "List the connected cameras", "nyxus list --json");
    set_run(command, arguments, run_list);
}

} // namespace tool
