// SPDX-License-Identifier: Apache-2.0
#include "command_line/command_line.h"
#include "commands.h"
#include "session/choose.h"
#include "system/doctor_checks.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

namespace tool {

namespace {

/// "" when it can be opened.
std::string why_not(const CameraEntry& entry)
{
    const nyxus::Status open = nyxus::can_open(entry);
    return open ? "" : usb_reason(open.usb_code());
}

Members json_entry(const CameraEntry& entry, const std::string& reason, const std::string& users,
                   const engine::RomHistory& history)
{
    Members object = json_of(entry);
    object.push_back({"openable", reason.empty()});
    object.push_back({"used_by", users});
    object.push_back({"rom", json_of(history)});
    if (!reason.empty())
        object.push_back({"reason", reason});
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
        const std::string reason = why_not(entry);
        const std::string users = users_of(entry);
        const engine::RomHistory history = engine::Backups().history(entry);
        array.emplace_back(json_entry(entry, reason, users, history));
        lines += "\n" + description(entry);
        if (!reason.empty())
            lines += "\n        cannot be opened: " + reason;
        if (!users.empty())
            lines += "\n        in use by " + users;
        if (history.needs_care())
            lines += "\n        " + printable(history.sentence());
    }
    if (cameras.empty())
        return say_what_is_wrong(console, arguments);
    console.display().say(arguments.json ? json_text(array) : lines);
    return kExitOk;
}

} // namespace

void add_list_command(Command& app, Arguments& arguments)
{
    Command& command = add_command(app, "list", "List the connected cameras", "--json");
    set_run(command, arguments, run_list);
}

} // namespace tool
