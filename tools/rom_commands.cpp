// SPDX-License-Identifier: Apache-2.0
// The command lines of the commands for the external ROM.
#include "command_line.h"
#include "commands.h"

namespace tool {

namespace {

constexpr uint32_t kLargestRom = 0x10000;

/// What commands that program the ROM have in common.
void add_programming(CLI::App* command, Arguments& arguments)
{
    command
        ->add_option("--eeprom", arguments.eeprom_kib,
                     "The ROM is an EEPROM of 4, 8, 16 or 32 KiB; needed when it is blank")
        ->type_name("KIB")
        ->check(one_of({"4", "8", "16", "32"}));
    command->add_flag("--no-backup", arguments.skip_backup,
                      "Do not keep a copy of what the ROM holds, a flash's reserved area included");
    command->add_flag("--no-verify", arguments.skip_verify, "Do not read back and compare");
    command->add_flag("--reset", arguments.reset,
                      "Restart the camera afterwards and show its new version");
    add_dry_run(command, arguments);
}

/// Several cameras at once.
void add_gang(CLI::App* command, Arguments& arguments)
{
    constexpr unsigned kMostJobs = 256;
    CLI::Option* all =
        command->add_flag("--all", arguments.all, "Upgrade every camera that is connected");
    as_number(command->add_option("--jobs", arguments.jobs, "With --all: so many at a time [all]"))
        ->type_name("N")
        ->check(CLI::Range(1U, kMostJobs).description(""))
        ->needs(all);
}

void add_upgrade(CLI::App& app, Arguments& arguments)
{
    CLI::App* command =
        add_command(app, "upgrade", "Program a firmware image, read it back and compare",
                    "nyxus upgrade camera.bin --mfi mfi.bin --serial A0001234 --reset");
    add_file(command, arguments.file, "Firmware image");
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
    set_run(command, arguments, run_upgrade);
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
    set_run(command, arguments, run_recover);
}

void add_dump(CLI::App& app, Arguments& arguments)
{
    CLI::App* command = add_command(app, "dump", "Write the ROM's contents to a file",
                                    "nyxus dump backup.bin --size 65536");
    add_file(command, arguments.file, "File to write");
    as_number(command->add_option("--size", arguments.size_bytes,
                                  "Bytes to read [the ROM, at most 32768]"))
        ->type_name("BYTES")
        ->check(CLI::Range(1U, kLargestRom).description(""));
    set_run(command, arguments, run_dump);
}

void add_compare(CLI::App& app, Arguments& arguments)
{
    CLI::App* command = add_command(app, "compare", "Compare the ROM's contents with an image",
                                    "nyxus compare camera.bin");
    add_file(command, arguments.file, "Image; its trailing 0xFF bytes are not compared");
    set_run(command, arguments, run_compare);
}

void add_erase(CLI::App& app, Arguments& arguments)
{
    CLI::App* command = add_command(app, "erase", "Erase the firmware of a camera with SPI flash",
                                    "nyxus erase -c A0001234 --yes");
    command->add_flag("-y,--yes", arguments.yes, "Do not ask");
    add_dry_run(command, arguments);
    set_run(command, arguments, run_erase);
}

void add_reset(CLI::App& app, Arguments& arguments)
{
    CLI::App* command =
        add_command(app, "reset", "Restart the camera's controller and wait for its return",
                    "nyxus reset --wait 10");
    set_run(command, arguments, run_reset);
}

} // namespace

void add_rom_commands(CLI::App& app, Arguments& arguments)
{
    add_upgrade(app, arguments);
    add_recover(app, arguments);
    add_dump(app, arguments);
    add_compare(app, arguments);
    add_erase(app, arguments);
    add_reset(app, arguments);
}

} // namespace tool
