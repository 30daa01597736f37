// SPDX-License-Identifier: Apache-2.0
#include "arguments.h"

#include "camera_list.h"
#include "completion.h"
#include "exit_codes.h"
#include "feature.h"

#include <nyxus/config.h>
#include <CLI/CLI.hpp>
#include <iostream>

namespace tool {

namespace {

constexpr char kDescription[] = "Identifies, upgrades and controls NYXUS USB cameras.";
constexpr char kCameraHelp[] = "Serial number, BUS:ADDRESS or port path ('nyxus list' shows them)";
constexpr uint32_t kLargestRom = 0x10000;
constexpr unsigned kLongestWait_s = 600;
constexpr unsigned kLongestPatience_s = 3600;

CLI::App* add_command(CLI::App& app, const char* name, const char* summary, const char* example)
{
    CLI::App* command = app.add_subcommand(name, summary);
    command->footer(
        std::string("The options of 'nyxus --help' may stand here too.\n\nExample:\n  ") + example);
    return command;
}

void add_file(CLI::App* command, Arguments& arguments, const char* help)
{
    command->add_option("FILE", arguments.file, help)->required()->type_name("");
}

void add_wait(CLI::App* command, Arguments& arguments)
{
    command
        ->add_option("--wait", arguments.wait_s,
                     "How long the camera may take to come back after a reset")
        ->type_name("SECONDS")
        ->check(CLI::Range(0U, kLongestWait_s).description(""))
        ->capture_default_str();
}

void add_listing_commands(CLI::App& app, Arguments& arguments)
{
    for (CLI::App* command :
         {add_command(app, "list", "List the connected cameras", "nyxus list --json"),
          add_command(app, "info", "Show what a camera says about itself, its firmware and its ROM",
                      "nyxus info -c 1-2")})
        command->add_flag("--json", arguments.json, "Print JSON");
}

/// What commands that program the ROM have in common.
void add_programming(CLI::App* command, Arguments& arguments)
{
    command
        ->add_option("--eeprom", arguments.eeprom_kib,
                     "The ROM is an EEPROM of 4, 8, 16 or 32 KiB; needed when it is blank")
        ->type_name("KIB")
        ->check(CLI::IsMember({4U, 8U, 16U, 32U}).description(""));
    command->add_flag("--no-backup", arguments.skip_backup,
                      "Do not keep a copy of what the ROM holds");
    command->add_flag("--no-verify", arguments.skip_verify, "Do not read back and compare");
    command->add_flag("--reset", arguments.reset,
                      "Restart the camera afterwards and show its new version");
    add_wait(command, arguments);
}

/// Several cameras at once.
void add_gang(CLI::App* command, Arguments& arguments)
{
    constexpr unsigned kMostJobs = 256;
    CLI::Option* all =
        command->add_flag("--all", arguments.all, "Upgrade every camera that is connected");
    command->add_option("--jobs", arguments.jobs, "With --all: so many at a time [all]")
        ->type_name("N")
        ->check(CLI::Range(1U, kMostJobs).description(""))
        ->needs(all);
}

void add_upgrade(CLI::App& app, Arguments& arguments)
{
    CLI::App* command =
        add_command(app, "upgrade", "Program a firmware image, read it back and compare",
                    "nyxus upgrade camera.bin --mfi mfi.bin --serial A0001234 --reset");
    add_file(command, arguments, "Firmware image");
    CLI::Option* mfi =
        command->add_option("--mfi", arguments.mfi_file, "MFi image to program beside it")
            ->type_name("FILE");
    command
        ->add_option("--serial", arguments.serial,
                     "Serial number to write into the MFi image before")
        ->type_name("TEXT")
        ->needs(mfi);
    command->add_flag("--force", arguments.force, "Program it even if the ROM equals the image");
    add_programming(command, arguments);
    add_gang(command, arguments);
    command->add_flag("--json", arguments.json, "Print progress and results as JSON lines");
}

void add_recover(CLI::App& app, Arguments& arguments)
{
    CLI::App* command =
        add_command(app, "recover", "Restore the firmware of a camera that runs its mask ROM",
                    "nyxus recover -c A0001234 --reset");
    command
        ->add_option("FILE", arguments.file,
                     "Backup or image to restore; without: the camera's latest backup")
        ->type_name("");
    command->add_flag("--force", arguments.force, "Do it to a camera that runs fine, too");
    add_programming(command, arguments);
}

void add_rom_commands(CLI::App& app, Arguments& arguments)
{
    CLI::App* erase = add_command(app, "erase", "Erase the firmware of a camera with SPI flash",
                                  "nyxus erase -c A0001234 --yes");
    erase->add_flag("--yes", arguments.yes, "Do not ask");

    CLI::App* dump = add_command(app, "dump", "Write the ROM's contents to a file",
                                 "nyxus dump backup.bin --size 65536");
    add_file(dump, arguments, "File to write");
    dump->add_option("--size", arguments.size_bytes, "Bytes to read [the ROM, at most 32768]")
        ->type_name("BYTES")
        ->check(CLI::Range(1U, kLargestRom).description(""));

    CLI::App* compare = add_command(app, "compare", "Compare the ROM's contents with an image",
                                    "nyxus compare camera.bin");
    add_file(compare, arguments, "Image; its trailing 0xFF bytes are not compared");

    CLI::App* reset =
        add_command(app, "reset", "Restart the camera's controller and wait for its return",
                    "nyxus reset --wait 10");
    add_wait(reset, arguments);
}

std::string version_line()
{
    char version[16] = "";
    LIB_NyxusGetVersion(version);
    return std::string("nyxus ") + std::string(version).substr(0, std::string(version).find('\n'));
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

std::string usage_error(const CLI::App* app, const CLI::Error& error)
{
    std::string help = "nyxus";
    for (auto chosen = app->get_subcommands(); !chosen.empty();
         chosen = chosen.front()->get_subcommands())
        help += " " + chosen.front()->get_name();
    help += " --help";
    return std::string("nyxus: ") + error.what() + "; see '" + help + "'\n";
}

} // namespace

ParsedArguments parse_arguments(int argc, char** argv)
{
    ParsedArguments parsed;
    Arguments& arguments = parsed.arguments;

    CLI::App app(kDescription, "nyxus");
    app.require_subcommand(0, 1)->fallthrough();
    app.get_formatter()->label("SUBCOMMAND", "COMMAND ...");
    app.set_version_flag("--version", version_line(), "Print the library's version and exit");
    app.add_option("-c,--camera", arguments.camera, kCameraHelp)->type_name("CAMERA");
    app.add_flag("-v,--verbose", arguments.verbosity,
                 "Show what the library says; -vv and -vvv show more");
    app.add_option("--patience", arguments.patience_s,
                   "Give up when the camera is silent for so long")
        ->type_name("SECONDS")
        ->check(CLI::Range(1U, kLongestPatience_s).description(""))
        ->capture_default_str();
    app.footer(std::string("Example:\n  nyxus upgrade camera.bin --reset\n\n") + kExitCodeHelp);
    app.failure_message(usage_error);

    add_listing_commands(app, arguments);
    add_upgrade(app, arguments);
    add_recover(app, arguments);
    add_rom_commands(app, arguments);
    add_feature_commands(app, arguments);

    if (completion::answer(app, argc, argv, names_of_cameras)) {
        parsed.finished = true;
        return parsed;
    }
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty())
            throw CLI::RequiredError("a command");
        arguments.command = app.get_subcommands().front()->get_name();
    } catch (const CLI::ParseError& error) {
        parsed.finished = true;
        parsed.exit_code = app.exit(error, std::cout, std::cerr) == 0 ? kExitOk : kExitUsage;
    }
    return parsed;
}

} // namespace tool
