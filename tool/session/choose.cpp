// SPDX-License-Identifier: Apache-2.0
// The camera that a command is for.
#include "session/choose.h"

#include "rom/programming.h"
#include "session/follower.h"
#include "terminal/failure.h"

#include <algorithm>
#include <cstring>

namespace tool {

/// With --wait it may still be plugged in; what follows says what is wrong if it is not.
static void wait_for_plug(Console& console, const Arguments& arguments)
{
    Follower follower(console);
    if (const unsigned wait_s = arguments.wait_s.value_or(0); wait_s > 0)
        value_of(engine::wait_for_cameras(arguments.camera, wait_s, follower.caller()));
}

std::vector<CameraEntry> matching_cameras(Console& console, const Arguments& arguments)
{
    wait_for_plug(console, arguments);
    std::vector<CameraEntry> cameras = list_cameras();
    if (!arguments.camera.empty()) {
        std::erase_if(cameras,
                      [&](const CameraEntry& entry) { return !entry.matches(arguments.camera); });
    }
    return cameras;
}

Camera open_chosen(Console& console, const Arguments& arguments, engine::Use use)
{
    wait_for_plug(console, arguments);
    Camera camera = value_of(Camera::open(select_camera(list_cameras(), arguments.camera), use));
    camera.queue_depth = arguments.queue_depth;
    return camera;
}

Camera open_with_rom(Console& console, const Arguments& arguments, uint32_t eeprom_kib)
{
    constexpr uint32_t kKib = 1024;
    Camera camera = open_chosen(console, arguments);
    const engine::Status usable = camera.require_rom(eeprom_kib * kKib);
    if (!usable)
        throw failure_of(usable, advice_for(usable.reason()));
    return camera;
}

std::vector<CameraEntry> every_camera(Console& console, const Arguments& arguments)
{
    if (!arguments.camera.empty())
        throw Failure(kExitUsage, "--all means every camera; leave --camera away");
    std::vector<CameraEntry> cameras = matching_cameras(console, arguments);
    if (cameras.empty())
        select_camera(cameras, ""); // says what to check
    std::ranges::sort(cameras, [](const CameraEntry& a, const CameraEntry& b) {
        return strverscmp(a.port_path.c_str(), b.port_path.c_str()) < 0;
    });
    return cameras;
}

} // namespace tool
