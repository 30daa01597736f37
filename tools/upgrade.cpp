// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "failure.h"
#include "image_file.h"
#include "last_words.h"
#include "rom_watcher.h"
#include "text.h"

#include <nyxus/error.h>
#include <nyxus/image.h>
#include <nyxus/production.h>

namespace tool {

namespace {

constexpr uint32_t kHeaderBytes = 0x40;
constexpr char kIncomplete[] = "the ROM is incomplete now, run the upgrade again";

/// The transfers of an upgrade in their order.
std::vector<uint32_t> transfer_sizes(bool with_mfi)
{
    std::vector<uint32_t> sizes;
    if (with_mfi)
        sizes.push_back(static_cast<uint32_t>(mfi().size()));
    sizes.push_back(static_cast<uint32_t>(firmware().size()) - kHeaderBytes);
    sizes.push_back(kHeaderBytes);
    return sizes;
}

Failure program_failure(RomWatcher::Phase phase, int32_t status)
{
    const std::string doing = std::string(phase_text(phase)) + " failed";
    if (phase != RomWatcher::Phase::kPreparing)
        return library_failure(doing, status, kIncomplete);
    // The flash's status is awaited while it is unlocked; nothing has been erased yet.
    const Failure failure = library_failure(doing, status, "nothing was written");
    const bool locked = failure.code() == kExitTimeout;
    return {locked ? kExitProtected : failure.code(), failure.text()};
}

void program(Console& console, Camera& camera, bool with_mfi)
{
    RomWatcher watcher(console.display(),
                       MarkCounter(camera.exchange_bytes(), transfer_sizes(with_mfi)));
    last_words::set_interrupt_text(
        "nyxus: interrupted: the ROM is incomplete; run the upgrade again before the camera is "
        "reset or unplugged\n");
    int32_t status = 0;
    {
        const Watching watching(console, watcher);
        status = MP_FwUpgrade(&camera.device(), with_mfi ? nyxus_mfi_bin : nullptr);
    }
    last_words::set_interrupt_text("");
    if (status == 0) {
        console.display().end();
        return;
    }
    console.display().abandon();
    throw program_failure(watcher.phase(), status);
}

/// Bytes that have to be equal, and where they lie.
struct Part {
    const char* name;
    uint32_t address;
    std::span<const uint8_t> bytes;
};

void verify(Console& console, Camera& camera, const Part& part)
{
    const std::vector<uint8_t> rom = read_rom(console, camera, part.name, part.address,
                                              static_cast<uint32_t>(part.bytes.size()));
    const Difference difference = find_difference(rom, part.bytes);
    if (difference.count == 0)
        return;
    const size_t first = difference.first_offsets.front();
    throw Failure(
        kExitMismatch,
        format("the ROM does not hold what was written: %zu of %zu bytes differ, the first "
               "one at 0x%04zX (ROM %02X, image %02X)",
               difference.count, rom.size(), part.address + first, rom[first], part.bytes[first]) +
            "; " + kIncomplete);
}

} // namespace

ExitCode run_upgrade(Console& console, const Arguments& arguments)
{
    const bool with_mfi = !arguments.mfi_file.empty();
    load_firmware(arguments.file);
    if (with_mfi)
        load_mfi(arguments.mfi_file, arguments.serial);

    Camera camera = open_with_rom(arguments);
    check_images(camera, with_mfi);
    console.drain();
    console.display().say("upgrading " + camera.name());
    program(console, camera, with_mfi);
    if (!arguments.skip_verify) {
        verify(console, camera, {"verifying", 0, firmware()});
        if (with_mfi)
            verify(console, camera, {"verifying MFi", NYXUS_MFI_ROM_ADDR, mfi()});
    }
    console.display().say(format("upgraded: %zu bytes of firmware", firmware().size()) +
                          (with_mfi ? format(", %zu bytes of MFi image", mfi().size()) : "") +
                          (arguments.skip_verify ? ", not read back" : ", read back and equal"));
    if (arguments.reset)
        restart(console, std::move(camera), arguments.wait_s);
    else
        console.display().say("the new firmware starts with the next reset: run 'nyxus reset'");
    return kExitOk;
}

} // namespace tool
