// SPDX-License-Identifier: Apache-2.0
#include "session/run.h"

#include "session/choose.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"

namespace tool {

namespace {

// From the worst to the mildest: cameras that need care first, then those that were never touched.
constexpr ExitCode kBySeverity[] = {
    kExitInterrupted,  kExitMismatch,     kExitCameraLost, kExitTimeout,
    kExitNotStarted,   kExitFailure,      kExitProtected,  kExitNotConfirmed,
    kExitNotSupported, kExitImageRefused, kExitBusy,       kExitPermission,
    kExitNoCamera,     kExitAmbiguous,    kExitUsage,      kExitOk,
};

ExitCode run_once(Console& console, const Arguments& arguments)
{
    Display& display = console.display();
    if (arguments.json) {
        display.set_last_line(
            [](const Failure& failure, RomContents) { return json_error(failure); });
    }
    try {
        const ExitCode code = arguments.run(console, arguments);
        console.drain();
        display.set_last_line(nullptr);
        return code;
    } catch (const Failure& failure) {
        console.drain();
        display.show({});
        if (arguments.json && !display.tells_events()) {
            Members line = arguments.turn ? json_of_place(*arguments.turn) : Members();
            line.push_back({"error", json_of(failure)});
            display.put_result(json_line(line)); // perhaps in the place of events
        }
        display.set_last_line(nullptr);
        const std::string place = arguments.turn ? arguments.turn->port_path + ": " : "";
        display.warn("nyxus: " + place + failure.text());
        return failure.code();
    }
}

} // namespace

ExitCode worse(int a, int b)
{
    for (const ExitCode code : kBySeverity) {
        if (a == code || b == code)
            return code;
    }
    return kExitFailure;
}

void add_all(Command& command, Arguments& arguments)
{
    command.flag("--all", &arguments.all, "With every camera, one after the other");
}

ExitCode run_for_each(Console& console, const Arguments& arguments, const Run& run)
{
    ExitCode code = kExitOk;
    for (const CameraEntry& camera : every_camera(console, arguments)) {
        if (console.was_interrupted_late())
            return kExitInterrupted;
        Arguments single = arguments;
        single.run = run;
        single.camera = camera.port_path;
        single.turn = camera;
        if (!arguments.json)
            console.display().say(camera.port_path + "  " + camera.serial + "  " + camera.product);
        code = worse(code, run_once(console, single));
        console.set_outlook("", RomContents::kUnchanged);
        if (code == kExitInterrupted)
            break;
    }
    return code;
}

ExitCode run_command(Console& console, const Arguments& arguments)
{
    Arguments chosen = arguments;
    if (arguments.all) {
        chosen.run = [run = arguments.run](Console& shown, const Arguments& every) {
            return run_for_each(shown, every, run);
        };
    }
    return run_once(console, chosen);
}

void say_json(Console& console, const Arguments& arguments, const Members& members)
{
    if (!arguments.turn)
        return console.display().say(json_text(members));
    Members line = json_of_place(*arguments.turn);
    line.insert(line.end(), members.begin(), members.end());
    console.display().say(json_line(line));
}

} // namespace tool
