// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "dry_run.h"
#include "failure.h"
#include "install.h"
#include "last_words.h"
#include "result.h"
#include "rom_reader.h"
#include "rom_watcher.h"

#include <nyxus/error.h>
#include <nyxus/image.h>
#include <nyxus/production.h>
#include <algorithm>

namespace tool {

namespace {

void confirm(Console& console, const Camera& camera, bool yes)
{
    if (yes)
        return;
    console.drain();
    const Unwatched unwatched(console);
    if (!console.display().confirm("Erase the firmware of " + camera.name() + "?")) {
        throw Failure(kExitNotConfirmed,
                      "not confirmed, nothing was erased; '--yes' erases unasked");
    }
}

void erase_rom(Console& console, Camera& camera, RomContents& rom)
{
    RomWatcher watcher(console.display(), 0);
    rom_will_change(camera);
    last_words::set_consequence("the ROM is partly erased; erase or upgrade it again",
                                to_text(RomContents::kIncomplete));
    int32_t status = 0;
    {
        const Watching watching(console, watcher);
        status = MP_FwErase(&camera.device());
    }
    if (status == 0 || watcher.phase() != RomWatcher::Phase::kPreparing)
        rom = status == 0 ? RomContents::kUnverified : RomContents::kIncomplete;
    last_words::set_consequence("", to_text(rom));
    if (status == 0)
        return;
    console.display().abandon();
    Failure failure = library_failure(std::string(phase_text(watcher.phase())) + " failed", status);
    if (watcher.phase() == RomWatcher::Phase::kErasing || failure.code() != kExitTimeout)
        throw failure;
    throw Failure(kExitProtected, failure.text());
}

uint32_t erased_bytes(const Camera& camera)
{
    return std::min<uint32_t>(camera.device().dwExtRomSize, NYXUS_FW_BIN_CAPACITY);
}

void check_erased(Console& console, Camera& camera, RomContents& contents)
{
    const std::vector<uint8_t> rom =
        read_rom(console, camera, "verifying", 0, erased_bytes(camera));
    const bool empty = std::ranges::all_of(rom, [](uint8_t byte) { return byte == 0xFF; });
    contents = empty ? RomContents::kErased : RomContents::kIncomplete;
    if (!empty) {
        throw Failure(kExitMismatch,
                      "the ROM is not empty after the erase; is it write-protected?");
    }
}

void refuse_eeprom(const Camera& camera)
{
    if (!camera.is_spi()) {
        throw Failure(kExitNotSupported, camera.name() +
                                             " has an EEPROM, which cannot be erased; an upgrade "
                                             "overwrites it");
    }
}

void print_plan(Console& console, const Arguments& arguments, Camera& camera)
{
    const Cost cost = rom_unlock(camera) + rom_erase(camera) + rom_lock(camera) +
                      whole_read(camera, erased_bytes(camera));
    print_dry_run(
        console, arguments, camera, "erase the firmware of " + camera.name(),
        {{"steps", Value::List{Members{{"step", "erase"}}, Members{{"step", "read back"}}}}}, cost,
        kFlashTime);
}

} // namespace

ExitCode run_erase(Console& console, const Arguments& arguments)
{
    if (arguments.dry_run) {
        Camera camera = open_with_rom(console, arguments);
        refuse_eeprom(camera);
        print_plan(console, arguments, camera);
        return kExitOk;
    }
    return run_with_result(console, arguments, [&](Result& result) {
        Camera camera = open_with_rom(console, arguments);
        result.camera = label_of(camera);
        promise_result(console, result);
        refuse_eeprom(camera);
        confirm(console, camera, arguments.yes);
        erase_rom(console, camera, result.rom);
        check_erased(console, camera, result.rom);
        result.message = "erased; after a reset the camera runs its mask ROM";
        console.display().say(result.message);
        return kExitOk;
    });
}

} // namespace tool
