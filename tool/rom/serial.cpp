// SPDX-License-Identifier: Apache-2.0
// The serial number in a unit's MFi image, which is not the one that USB tells.
#include "commands.h"
#include "rom/rewrite.h"
#include "session/choose.h"
#include "session/follower.h"
#include "session/run.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <nyxus/image.h>

namespace tool {

namespace {

struct SerialArguments {
    std::string wanted; ///< "": it is shown
};

/// The place of an MFi image is the same in every ROM.
void require_room(size_t rom_bytes)
{
    if (rom_bytes < NYXUS_MFI_ROM_ADDR + NYXUS_MFI_BIN_CAPACITY) {
        throw Failure(kExitNotSupported,
                      format("a ROM of %zu bytes has no room for an MFi image", rom_bytes));
    }
}

ExitCode show(Console& console, const Arguments& arguments)
{
    Camera camera = open_with_rom(console, arguments);
    require_room(camera.rom_size());
    Follower follower(console);
    const auto area = value_of(
        engine::read_rom(camera, NYXUS_MFI_ROM_ADDR, NYXUS_MFI_BIN_CAPACITY, follower.caller()));
    console.drain();
    const auto mfi = engine::inspect_contents(area).mfi;
    const std::string serial = mfi ? printable(mfi->serial) : "";
    if (arguments.json) {
        say_json(
            console, arguments,
            {{"mfi_serial", nothing_or(serial)}, {"usb_serial", nothing_or(camera.info().serial)}});
        return kExitOk;
    }
    const std::string none = mfi ? "none that is a text" : "none, the ROM holds no MFi image";
    console.display().say("MFi serial number: " + (serial.empty() ? none : serial));
    console.display().say("USB serial number: " +
                          (camera.info().serial.empty() ? "none" : camera.info().serial));
    return kExitOk;
}

ExitCode run_serial(Console& console, const Arguments& arguments, const SerialArguments& options)
{
    if (options.wanted.empty())
        return show(console, arguments);
    const auto patch = [&](std::vector<uint8_t>& rom) {
        require_room(rom.size());
        const auto area = std::span(rom).subspan(NYXUS_MFI_ROM_ADDR, NYXUS_MFI_BIN_CAPACITY);
        engine::Mfi mfi = value_of(engine::Mfi::from({area.begin(), area.end()}));
        require(mfi.set_serial(options.wanted));
        std::ranges::copy(mfi.bytes(), area.begin());
    };
    return rewrite(console, arguments, "serial", patch,
                   "MFi serial number: " + options.wanted + ", read back and equal");
}

} // namespace

void add_serial_command(Command& app, Arguments& arguments)
{
    Command& command =
        add_command(app, "serial", "Show the unit's MFi serial number, or write it", "A0001234");
    auto& options = set_run<SerialArguments>(command, arguments, run_serial);
    command.text("TEXT", &options.wanted, "As long as the one in its MFi image; without: show it");
    add_no_backup(command, arguments);
    add_dry_run(command, arguments);
}

} // namespace tool
