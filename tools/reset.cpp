// SPDX-License-Identifier: Apache-2.0
#include "backup.h"
#include "commands.h"
#include "failure.h"
#include "result.h"

#include <nyxus/chip.h>
#include <algorithm>
#include <thread>

namespace tool {

namespace {

constexpr std::chrono::milliseconds kPollInterval{50};

/// The same camera after its restart: it sits at the same port. Its serial number may be a new one.
std::optional<CameraEntry> find_again(const CameraEntry& before)
{
    // A session sees the bus as it is when it starts; an old one may need a udev daemon to learn.
    const std::vector<CameraEntry> cameras = list_cameras();
    const auto found = std::ranges::find(cameras, before.port_path, &CameraEntry::port_path);
    return found == cameras.end() ? std::nullopt : std::optional(*found);
}

Failure return_failure(const CameraEntry& before, bool left, unsigned wait_s)
{
    const std::string doing = "the camera at port " + before.port_path;
    if (const std::optional<CameraEntry> now = find_again(before); left && now)
        return usb_failure(doing + " came back", try_claim(*now).libusb_code);
    const char* end = left ? " s; try a longer --wait, or plug it in again"
                           : " s; unplug it and plug it in again";
    return {kExitTimeout, doing + (left ? " has not come back" : " has not restarted") + " after " +
                              std::to_string(wait_s) + end};
}

/// Asks for the restart and closes the camera.
void request_restart(Camera camera)
{
    // The chip may be gone before it has confirmed the request, so a failure says nothing: whether
    // the camera comes back decides.
    (void)XU_ChipReset(&camera.device());
}

} // namespace

CameraEntry wait_for_return(Console& console, const CameraEntry& before, unsigned wait_s)
{
    const Unwatched unwatched(console);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(wait_s);
    bool left = false;
    for (;;) {
        const std::optional<CameraEntry> now = find_again(before);
        left = left || !now || now->address != before.address;
        // The udev daemon needs a moment to give the new node its permissions.
        if (left && now && try_claim(*now).libusb_code == 0)
            return *now;
        if (std::chrono::steady_clock::now() >= deadline)
            throw return_failure(before, left, wait_s);
        std::this_thread::sleep_for(kPollInterval);
    }
}

/// Restarts the camera, waits for its return and says how it came back.
static Camera restart(Console& console, Camera camera, unsigned wait_s)
{
    const CameraEntry before = camera.entry();
    Display& display = console.display();
    display.begin("restarting", 0);
    request_restart(std::move(camera));
    const CameraEntry now = wait_for_return(console, before, wait_s);
    Camera returned = Camera::open(now);
    console.drain();
    display.end();
    forget_change(before);
    display.say(returned.name() + " " + firmware_sentence(returned));
    return returned;
}

void start_new_firmware(Console& console, Camera camera, unsigned wait_s)
{
    const Camera returned = restart(console, std::move(camera), wait_s);
    if (!returned.runs_external_firmware()) {
        throw Failure(kExitFailure, returned.name() +
                                        " came back with its mask ROM: it does not start what was "
                                        "written; 'nyxus upgrade' installs another image, "
                                        "'nyxus recover FILE' an older backup");
    }
}

ExitCode run_reset(Console& console, const Arguments& arguments)
{
    return run_with_result(console, arguments, [&](Result& result) {
        Camera camera = open_chosen(console, arguments);
        result.camera = label_of(camera);
        promise_result(console, result);
        const Camera returned = restart(console, std::move(camera), arguments.return_wait_s());
        result.message = returned.name() + " " + firmware_sentence(returned);
        return kExitOk;
    });
}

} // namespace tool
