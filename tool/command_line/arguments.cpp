// SPDX-License-Identifier: Apache-2.0
#include "command_line/arguments.h"

#include "command_line/command_line.h"
#include "command_line/completion.h"
#include "command_line/help.h"
#include "command_line/parse.h"
#include "command_line/versions.h"
#include "commands.h"
#include "session/camera_list.h"

#include <algorithm>

namespace tool {

namespace {

constexpr unsigned kLongestWait_s = 600;
constexpr unsigned kLongestPatience_s = 3600;
constexpr unsigned kDeepestQueue = 64;

/// For the completion of command lines: how the connected cameras can be named.
command_line::Words names_of_cameras()
{
    command_line::Words names;
    for (const CameraEntry& entry : list_cameras()) {
        if (!entry.serial.empty())
            names.push_back(entry.serial);
        names.push_back(entry.port_path);
    }
    return names;
}

/// The options of all commands.
void add_general_options(Command& app, Arguments& arguments)
{
    app.text("-c,--camera", &arguments.camera,
             "Serial number, BUS:ADDRESS or port path, as 'nyxus list' shows them")
        .shown_as("CAMERA")
        .offering(names_of_cameras);
    app.number("--wait", &arguments.wait_s, {0, kLongestWait_s},
               "Wait so long for what is not there yet: a camera to be plugged in (usually "
               "0), its return after a restart (5), a picture (10)")
        .shown_as("SECONDS");
    app.number("--patience", &arguments.patience_s, {1, kLongestPatience_s},
               "Give up when the camera is silent for so long")
        .shown_as("SECONDS")
        .showing_default();
    app.number("--queue", &arguments.queue_depth, {1, kDeepestQueue},
               "Reading a ROM, keep so many requests under way; 1: one after the other")
        .shown_as("N")
        .showing_default();
    app.flag("--json", &arguments.json, "Print results as JSON");
    const Option& quiet = app.flag("-q,--quiet", &arguments.quiet, "Print results and errors only");
    app.flag("-v,--verbose", &arguments.verbosity,
             "Show what the library says; -vv and -vvv show more")
        .excluding(quiet);
}

} // namespace

ParsedArguments parse_arguments(int argc, char** argv)
{
    ParsedArguments parsed;
    parsed.arguments.words.assign(argv + std::min(argc, 1), argv + argc);
    // Help and versions are printed before the other options are known.
    const bool as_json =
        std::ranges::find(parsed.arguments.words, "--json") != parsed.arguments.words.end();
    command_line::Program app({.name = "nyxus",
                               .summary = "Identifies, upgrades and controls NYXUS USB cameras.",
                               .version = version_text(as_json),
                               .help_of_help = "Print this help",
                               .help_of_version = "Print the versions in use"});
    app.layout = as_json ? help_json : help_of;
    app.complaint = complaint_about;
    app.options_reach_down = true;
    app.needing_command().footer(std::string("nyxus upgrade camera.bin --reset\n\n") +
                                 kExitCodeHelp);
    add_general_options(app, parsed.arguments);
    add_all_commands(app, parsed.arguments);
    if (command_line::answer_completion(app, argc, argv)) {
        parsed.exit_code = kExitOk;
        return parsed;
    }
    parsed.exit_code = command_line::parse(app, argc, argv);
    if (!parsed.exit_code && !parsed.arguments.run) // help was all that was wanted
        parsed.exit_code = kExitOk;
    return parsed;
}

} // namespace tool
