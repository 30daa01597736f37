// SPDX-License-Identifier: Apache-2.0
#include "command_line.h"
#include "commands.h"
#include "failure.h"
#include "json_text.h"

namespace tool {

namespace {

Members json_entry(const CameraEntry& entry, const Openable& openable)
{
    Members object = json_of(entry);
    object.push_back({"openable", openable.libusb_code == 0});
    if (openable.libusb_code != 0)
        object.push_back({"reason", openable.reason});
    return object;
}

/// Without a camera to list. For programs an empty list is a result, too.
ExitCode say_what_is_wrong(Console& console, const Arguments& arguments)
{
    try {
        select_camera(list_cameras(), arguments.camera);
        return kExitOk; // it has just been plugged in
    } catch (const Failure& failure) {
        if (!arguments.json)
            throw;
        console.display().say("[]");
        console.display().warn("nyxus: " + failure.text());
        return failure.code();
    }
}

ExitCode run_list(Console& console, const Arguments& arguments)
{
    const std::vector<CameraEntry> cameras = matching_cameras(console, arguments);
    Value::List array;
    std::string lines = "CAMERA  PORT     SERIAL           PRODUCT";
    for (const CameraEntry& entry : cameras) {
        const Openable openable = try_open(entry);
        array.emplace_back(json_entry(entry, openable));
        lines += "\n" + description(entry);
        if (openable.libusb_code != 0)
            lines += "\n        cannot be opened: " + openable.reason;
    }
    if (cameras.empty())
        return say_what_is_wrong(console, arguments);
    console.display().say(arguments.json ? json_text(array) : lines);
    return kExitOk;
}

} // namespace

void add_list_command(Command& app, Arguments& arguments)
{
    Command& command = add_command(app, "list", "List the connected cameras", "nyxus list --json");
    set_run(command, arguments, run_list);
}

} // namespace tool
