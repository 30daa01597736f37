// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "rom/programming.h"
#include "session/follower.h"
#include "session/result.h"
#include "terminal/failure.h"

namespace tool {

/// Restarts the camera, waits for its return and says how it came back.
static Camera restart(Console& console, const Arguments& arguments, Camera camera)
{
    Follower follower(console, arguments);
    Camera returned = value_of(engine::restart(std::move(camera), arguments.return_wait_s(),
                                               engine::Backups(), follower.caller()));
    console.drain();
    console.display().say(returned.name() + " " + returned.firmware_sentence());
    return returned;
}

std::string start_new_firmware(Console& console, const Arguments& arguments, Camera camera,
                               Result& result, const engine::Images* images)
{
    const Camera returned = restart(console, arguments, std::move(camera));
    result.version_after = returned.version();
    engine::Status started = check_started(returned, engine::Backups());
    if (started && images != nullptr)
        started = check_reports(returned, *images);
    if (!started)
        throw failure_of(started, advice_for(started.reason()));
    return returned.name() + " " + returned.firmware_sentence();
}

ExitCode run_reset(Console& console, const Arguments& arguments)
{
    return run_with_result(console, arguments, [&](Result& result) {
        Camera camera = open_chosen(console, arguments);
        result.camera = label_of(camera);
        result.version_before = camera.version();
        promise_result(console, result);
        result.message = start_new_firmware(console, arguments, std::move(camera), result);
        return kExitOk;
    });
}

} // namespace tool
