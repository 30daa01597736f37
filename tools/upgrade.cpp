// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "image_file.h"
#include "install.h"
#include "text.h"

#include <algorithm>

namespace tool {

namespace {

bool holds(std::span<const uint8_t> rom, const Part& part)
{
    return part.address + part.bytes.size() <= rom.size() &&
           std::ranges::equal(rom.subspan(part.address, part.bytes.size()), part.bytes);
}

bool is_up_to_date(std::span<const uint8_t> rom, bool with_mfi)
{
    return std::ranges::all_of(parts_to_install(with_mfi),
                               [rom](const Part& part) { return holds(rom, part); });
}

/// Looks at what is there: true when nothing has to be done, otherwise there is a backup.
bool prepare(Console& console, Camera& camera, const Arguments& arguments, bool with_mfi)
{
    if (arguments.force && arguments.skip_backup)
        return false;
    const std::vector<uint8_t> before = read_replaced(console, camera);
    if (!arguments.force && is_up_to_date(before, with_mfi)) {
        console.display().say("already up to date: the ROM equals the image");
        return true;
    }
    if (!arguments.skip_backup)
        back_up(console, camera, before);
    return false;
}

void say_what_is_done(Console& console, const Arguments& arguments, bool with_mfi)
{
    console.display().say(format("upgraded: %zu bytes of firmware", firmware().size()) +
                          (with_mfi ? format(", %zu bytes of MFi image", mfi().size()) : "") +
                          (arguments.skip_verify ? ", not read back" : ", read back and equal"));
}

} // namespace

ExitCode run_upgrade(Console& console, const Arguments& arguments)
{
    const bool with_mfi = !arguments.mfi_file.empty();
    load_firmware(arguments.file);
    if (with_mfi)
        load_mfi(arguments.mfi_file, arguments.serial);

    Camera camera = open_with_rom(console, arguments);
    check_images(camera, with_mfi);
    console.drain();
    console.display().say("upgrading " + camera.name());
    const bool done = prepare(console, camera, arguments, with_mfi);
    if (!done) {
        install(console, camera, arguments, with_mfi);
        say_what_is_done(console, arguments, with_mfi);
    }
    if (arguments.reset)
        restart(console, std::move(camera), arguments.return_wait_s());
    else if (!done)
        console.display().say("the new firmware starts with the next reset: run 'nyxus reset'");
    return kExitOk;
}

} // namespace tool
