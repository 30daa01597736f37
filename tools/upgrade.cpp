// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "failure.h"
#include "image_file.h"
#include "install.h"
#include "text.h"

#include <algorithm>
#include <chrono>

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
    if (arguments.force && arguments.skip_backup)
        return false;
    const std::vector<uint8_t> before = read_replaced(console, camera);
    if (!arguments.force && is_up_to_date(before, with_mfi)) {
        return true;
    }
    if (!arguments.skip_backup)
        back_up(console, camera, before);
    return false;
}

std::string what_is_done(const Arguments& arguments, bool with_mfi)
{
    return format("upgraded: %zu bytes of firmware", firmware().size()) +
           (with_mfi ? format(", %zu bytes of MFi image", mfi().size()) : "") +
           (arguments.skip_verify ? ", not read back" : ", read back and equal");
}

void upgrade(Console& console, const Arguments& arguments, Result& result)
{
    const bool with_mfi = !arguments.mfi_file.empty();
    load_firmware(arguments.file);
    if (with_mfi)
        load_mfi(arguments.mfi_file, arguments.serial);

    Camera camera = open_with_rom(arguments);
    result.camera = {camera.entry().port_path, camera.entry().serial, camera.entry().product};
    check_images(camera, with_mfi);
    console.drain();
    console.display().say("upgrading " + camera.name());
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
    if (arguments.reset)
        restart(console, std::move(camera), arguments.wait_s);
    else if (!done)
        console.display().say("the new firmware starts with the next reset: run 'nyxus reset'");
    result.outcome = done ? Outcome::kUpToDate : Outcome::kUpgraded;
    result.exit_code = kExitOk;
}

/// As a JSON line, when these are wanted.
void report(Console& console, Result& result, std::chrono::steady_clock::time_point begun)
{
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    console.drain();
    if (console.display().tells_events())
        console.display().put_event(json_line(result));
}

} // namespace

ExitCode run_upgrade(Console& console, const Arguments& arguments)
{
    if (arguments.all)
        return run_gang(console, arguments);
    if (arguments.json)
        console.display().tell_events();
    const auto begun = std::chrono::steady_clock::now();
    Result result;
    try {
        upgrade(console, arguments, result);
    } catch (const Failure& failure) {
        const bool interrupted = failure.code() == kExitInterrupted;
        result.outcome = interrupted ? Outcome::kInterrupted : Outcome::kFailed;
        result.exit_code = failure.code();
        result.message = failure.text();
        report(console, result, begun);
        throw;
    }
    report(console, result, begun);
    return kExitOk;
}

} // namespace tool
