// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "failure.h"
#include "text.h"

#include <nlohmann/json.hpp>

namespace tool {

namespace {

nlohmann::ordered_json json_entry(const CameraEntry& entry, const Openable& openable)
{
    nlohmann::ordered_json object = {
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

std::vector<CameraEntry> chosen_cameras(const Arguments& arguments)
{
    std::vector<CameraEntry> cameras = list_cameras();
    if (!arguments.camera.empty())
        std::erase_if(cameras,
                      [&](const CameraEntry& entry) { return !entry.matches(arguments.camera); });
    return cameras;
}

} // namespace

ExitCode run_list(Console& console, const Arguments& arguments)
{
    const std::vector<CameraEntry> cameras = chosen_cameras(arguments);
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    std::string lines = "CAMERA  PORT     SERIAL           PRODUCT";
    for (const CameraEntry& entry : cameras) {
        const Openable openable = try_open(entry);
        array.push_back(json_entry(entry, openable));
        lines += "\n" + description(entry);
        if (openable.libusb_code != 0)
            lines += "\n        cannot be opened: " + openable.reason;
    }
    if (arguments.json)
        console.display().say(
            array.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    if (cameras.empty())
        select_camera(list_cameras(), arguments.camera); // says what is wrong
    else if (!arguments.json)
        console.display().say(lines);
    return kExitOk;
}

} // namespace tool
