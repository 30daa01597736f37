// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "failure.h"
#include "last_words.h"
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
    if (!console.display().confirm("Erase the firmware of " + camera.name() + "?"))
        throw Failure(kExitProtected, "not confirmed, nothing was erased; '--yes' erases unasked");
}

void erase_rom(Console& console, Camera& camera)
{
    RomWatcher watcher(console.display(), MarkCounter(camera.exchange_bytes(), {}));
    last_words::set_consequence("the ROM is partly erased; erase or upgrade it again");
    int32_t status = 0;
    {
        const Watching watching(console, watcher);
        status = MP_FwErase(&camera.device());
    }
    last_words::set_consequence("");
    if (status == 0)
        return;
    console.display().abandon();
    Failure failure = library_failure(std::string(phase_text(watcher.phase())) + " failed", status);
    if (watcher.phase() == RomWatcher::Phase::kErasing || failure.code() != kExitTimeout)
        throw failure;
    throw Failure(kExitProtected, failure.text());
}

void check_erased(Console& console, Camera& camera)
{
    const uint32_t size = std::min<uint32_t>(camera.device().dwExtRomSize, NYXUS_FW_BIN_CAPACITY);
    const std::vector<uint8_t> rom = read_rom(console, camera, "verifying", 0, size);
    if (!std::ranges::all_of(rom, [](uint8_t byte) { return byte == 0xFF; }))
        throw Failure(kExitMismatch,
                      "the ROM is not empty after the erase; is it write-protected?");
}

} // namespace

ExitCode run_erase(Console& console, const Arguments& arguments)
{
    Camera camera = open_with_rom(console, arguments);
    if (!camera.is_spi())
        throw Failure(kExitNotSupported, camera.name() +
                                             " has an EEPROM, which cannot be erased; an upgrade "
                                             "overwrites it");
    confirm(console, camera, arguments.yes);
    erase_rom(console, camera);
    check_erased(console, camera);
    console.display().say("erased; after a reset the camera runs its mask ROM");
    return kExitOk;
}

} // namespace tool
