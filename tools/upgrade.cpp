// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "image_file.h"
#include "install.h"
#include "install_plan.h"
#include "result.h"
#include "text.h"

#include <algorithm>

namespace tool {

namespace {

constexpr char kUpToDate[] = "already up to date: the ROM equals the image";

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
    std::vector<uint8_t> before;
    if (!arguments.force || !arguments.skip_backup)
        before = read_replaced(console, camera);
    if (!arguments.force && is_up_to_date(before, with_mfi))
        return true;
    back_up(console, camera, arguments, before);
    return false;
}

/// False without an MFi image.
bool load_images(const Arguments& arguments)
{
    load_firmware(arguments.file);
    if (arguments.mfi_file.empty())
        return false;
    load_mfi(arguments.mfi_file, arguments.serial);
    return true;
}

std::string what_is_done(const Arguments& arguments, bool with_mfi)
{
    return format("upgraded: %zu bytes of firmware", firmware().size()) +
           (with_mfi ? format(", %zu bytes of MFi image", mfi().size()) : "") +
           (arguments.skip_verify ? ", not read back" : ", read back and equal");
}

/// What --dry-run does in its place.
ExitCode plan_upgrade(Console& console, const Arguments& arguments)
{
    const bool with_mfi = load_images(arguments);
    Camera camera = open_with_rom(console, arguments);
    check_images(camera, with_mfi);
    std::vector<uint8_t> before;
    if (!arguments.force)
        before = read_replaced(console, camera);
    if (!arguments.force && is_up_to_date(before, with_mfi)) {
        print_nothing_to_do(console, arguments, camera, kUpToDate);
    } else {
        print_install_plan(console, arguments, camera, with_mfi, before);
    }
    return kExitOk;
}

void upgrade(Console& console, const Arguments& arguments, Result& result)
{
    const bool with_mfi = load_images(arguments);
    Camera camera = open_with_rom(console, arguments);
    result.camera = label_of(camera);
    promise_result(console, result);
    check_images(camera, with_mfi);
    console.drain();
    console.display().note("upgrading " + camera.name());
    const bool done = prepare(console, camera, arguments, with_mfi);
    if (done) {
        result.message = kUpToDate;
        result.rom = RomContents::kNew;
    } else {
        install(console, camera, arguments, with_mfi, result.rom);
        result.message = what_is_done(arguments, with_mfi);
        result.bytes = firmware().size() + (with_mfi ? mfi().size() : 0);
    }
    console.display().say(result.message);
    if (arguments.reset) {
        start_new_firmware(console, std::move(camera), arguments.return_wait_s());
    } else if (!done) {
        console.display().note("the new firmware starts with the next reset: run 'nyxus reset'");
    }
    result.outcome = done ? Outcome::kUpToDate : Outcome::kUpgraded;
}

} // namespace

ExitCode run_upgrade(Console& console, const Arguments& arguments)
{
    if (arguments.all) {
        return arguments.dry_run ? plan_gang(console, arguments, plan_upgrade)
                                 : run_gang(console, arguments);
    }
    if (arguments.dry_run)
        return plan_upgrade(console, arguments);
    return run_with_result(console, arguments, [&](Result& result) {
        upgrade(console, arguments, result);
        return kExitOk;
    });
}

} // namespace tool
