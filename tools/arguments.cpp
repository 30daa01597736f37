// SPDX-License-Identifier: Apache-2.0
#include "arguments.h"

#include "camera_list.h"
#include "command_line.h"
#include "command_line/completion.h"
#include "commands.h"
#include "help.h"
#include "versions.h"

#include <iostream>

namespace tool {

namespace {

constexpr unsigned kLongestWait_s = 600;
constexpr unsigned kLongestPatience_s = 3600;

/// The options of all commands.
void add_general_options(CLI::App& app, Arguments& arguments)
{
    app.set_help_flag("-h,--help", "Print this help");
    app.set_version_flag("--version", version_text(), "Print the versions in use");
    app.add_option("-c,--camera", arguments.camera,
                   "Serial number, BUS:ADDRESS or port path, as 'nyxus list' shows them")
        ->type_name("CAMERA");
    as_number(
        app.add_option("--wait", arguments.wait_s,
                       "Wait so long for what is not there yet: a camera to be plugged in (usually "
                       "0), its return after a restart (5), a picture (10)"))
        ->type_name("SECONDS")
        ->check(CLI::Range(0U, kLongestWait_s).description(""));
    as_number(app.add_option("--patience", arguments.patience_s,
                             "Give up when the camera is silent for so long"))
        ->type_name("SECONDS")
        ->check(CLI::Range(1U, kLongestPatience_s).description(""))
        ->capture_default_str();
    app.add_flag("--json", arguments.json, "Print results as JSON");
    CLI::Option* quiet =
        app.add_flag("-q,--quiet", arguments.quiet, "Print results and errors only");
    app.add_flag("-v,--verbose", arguments.verbosity,
                 "Show what the library says; -vv and -vvv show more")
        ->excludes(quiet);
}

/// For the completion of command lines: how the connected cameras can be named.
std::vector<std::string> names_of_cameras(const CLI::Option& option)
{
    std::vector<std::string> names;
    if (!option.check_name("--camera"))
        return names;
    for (const CameraEntry& entry : list_cameras())
        names.push_back(entry.serial.empty() ? entry.port_path : entry.serial);
    return names;
}

} // namespace

ParsedArguments parse_arguments(int argc, char** argv)
{
    ParsedArguments parsed;
    CLI::App app("Identifies, upgrades and controls NYXUS USB cameras.", "nyxus");
    app.formatter(std::make_shared<HelpFormatter>());
    app.failure_message(usage_error);
    app.require_subcommand(1)->fallthrough();
    app.footer(std::string("nyxus upgrade camera.bin --reset\n\n") + kExitCodeHelp);
    add_general_options(app, parsed.arguments);
    add_all_commands(app, parsed.arguments);
    if (completion::answer(app, argc, argv, names_of_cameras)) {
        parsed.finished = true;
        return parsed;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        parsed.finished = true;
        parsed.exit_code = app.exit(error, std::cout, std::cerr) == 0 ? kExitOk : kExitUsage;
    }
    return parsed;
}

} // namespace tool
