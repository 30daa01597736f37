// SPDX-License-Identifier: Apache-2.0
// The command lines of the commands for the external ROM.
#include "command_line/command_line.h"
#include "commands.h"

namespace tool {

namespace {

constexpr uint32_t kLargestRom = 0x10000;

/// What commands that program the ROM have in common.
void add_programming(Command& command, Arguments& arguments)
{
    add_choice(command, "--eeprom", &arguments.eeprom_kib, {"4", "8", "16", "32"},
               "The ROM is an EEPROM of 4, 8, 16 or 32 KiB; needed when it is blank")
        .shown_as("KIB");
    add_choice(
        command, "--keep", &arguments.keep, {"first64k", "whole"},
        "What of a flash is kept beside the image: of its first 64 KiB, which is all that the "
        "controller uses, or of the whole part [first64k]")
        .shown_as("AREA");
    add_choice(command, "--discard", &arguments.discard, {"mfi", "reserved", "mfi,reserved"},
               "Do not keep a flash's MFi image, or its reserved area")
        .shown_as("PARTS");
    add_no_backup(command, arguments);
    command.flag("--no-verify", &arguments.skip_verify, "Do not read back and compare");
    command.flag("--reset", &arguments.reset,
                 "Restart the camera afterwards and show its new version");
    add_dry_run(command, arguments);
}

/// Several cameras at once.
void add_batch(Command& command, Arguments& arguments)
{
    constexpr unsigned kMostJobs = 256;
    const Option& all =
        command.flag("--all", &arguments.all, "Upgrade every camera that is connected");
    command.number("--jobs", &arguments.jobs, {1, kMostJobs}, "With --all: so many at a time [all]")
        .shown_as("N")
        .needing(all);
}

void add_upgrade(Command& app, Arguments& arguments)
{
    Command& command =
        add_command(app, "upgrade", "Program a firmware image, read it back and compare",
                    "camera.bin --mfi mfi.bin --serial A0001234 --reset");
    command.file("FILE", &arguments.file, "Firmware image; without: --manifest");
    const Option& manifest =
        command.file("--manifest", &arguments.manifest,
                     "Manifest, which names the images by chip, for any mixture of cameras");
    command.text("--sha256", &arguments.sha256, "Digest that the firmware image has to have")
        .shown_as("HEX")
        .excluding(manifest);
    command.file("--mfi", &arguments.mfi_file, "MFi image to program beside it")
        .excluding(manifest);
    command.text("--serial", &arguments.serial, "Serial number to write into the MFi image before")
        .shown_as("TEXT");
    command.flag("--allow-downgrade", &arguments.allow_downgrade,
                 "Also from a newer version to an older one");
    command.flag("--force", &arguments.force, "Program it even if the ROM equals the image");
    add_programming(command, arguments);
    add_batch(command, arguments);
    set_run(command, arguments, run_upgrade);
}

void add_recover(Command& app, Arguments& arguments)
{
    Command& command =
        add_command(app, "recover", "Restore the firmware of a camera that runs its mask ROM",
                    "-c A0001234 --reset");
    command.file("FILE", &arguments.file,
                 "Backup or image to restore; without: the camera's latest backup");
    command.flag("--force", &arguments.force, "Do it to a camera that runs fine, too");
    add_programming(command, arguments);
    set_run(command, arguments, run_recover);
}

void add_dump(Command& app, Arguments& arguments)
{
    Command& command =
        add_command(app, "dump", "Write the ROM's contents to a file", "backup.bin --size 65536");
    add_file(command, &arguments.file, "File to write");
    command
        .number("--size", &arguments.size_bytes, {1, kLargestRom},
                "Bytes to read [the ROM, at most 32768]")
        .shown_as("BYTES");
    set_run(command, arguments, run_dump);
}

void add_compare(Command& app, Arguments& arguments)
{
    Command& command =
        add_command(app, "compare", "Compare the ROM's contents with an image", "camera.bin");
    add_file(command, &arguments.file, "Image; its trailing 0xFF bytes are not compared");
    set_run(command, arguments, run_compare);
}

void add_erase(Command& app, Arguments& arguments)
{
    Command& command = add_command(app, "erase", "Erase the firmware of a camera with SPI flash",
                                   "-c A0001234 --yes");
    command.flag("-y,--yes", &arguments.yes, "Do not ask");
    add_no_backup(command, arguments);
    add_dry_run(command, arguments);
    set_run(command, arguments, run_erase);
}

void add_reset(Command& app, Arguments& arguments)
{
    Command& command = add_command(
        app, "reset", "Restart the camera's controller and wait for its return", "--wait 10");
    set_run(command, arguments, run_reset);
}

} // namespace

void add_rom_commands(Command& app, Arguments& arguments)
{
    add_upgrade(app, arguments);
    add_recover(app, arguments);
    add_dump(app, arguments);
    add_compare(app, arguments);
    add_erase(app, arguments);
    add_reset(app, arguments);
}

} // namespace tool
