// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "rom/programming.h"
#include "session/choose.h"
#include "session/follower.h"
#include "session/run.h"

namespace tool {

void start_new_firmware(Console& console, const Arguments& arguments, Camera camera, Result& result,
                        const engine::Images* images)
{
    Follower follower(console);
    const Camera returned = value_of(engine::restart(std::move(camera), arguments.return_wait_s(),
                                                     engine::Backups(), follower.caller()));
    console.drain();
    const std::string sentence = returned.name() + " " + returned.firmware_sentence();
    console.display().say(sentence);
    result.report.version_after = returned.version();
    engine::Status started = check_started(returned, engine::Backups());
    if (started && images != nullptr)
        started = check_reports(returned, *images);
    if (!started)
        throw failure_of(started, advice_for(started.reason()));
    if (result.message.empty())
        result.message = sentence;
}

static ExitCode run_reset(Console& console, const Arguments& arguments)
{
    return run_with_result(console, arguments, [&](Result& result) {
        Camera camera = introduce(console, result, open_chosen(console, arguments));
        start_new_firmware(console, arguments, std::move(camera), result);
        return kExitOk;
    });
}

void add_reset_command(Command& app, Arguments& arguments)
{
    Command& command = add_command(
        app, "reset", "Restart the camera's controller and wait for its return", "--wait 10");
    add_all(command, arguments);
    set_run(command, arguments, run_reset);
}

} // namespace tool
