// SPDX-License-Identifier: Apache-2.0
#include "install.h"

#include "backup.h"
#include "commands.h"
#include "failure.h"
#include "image_file.h"
#include "last_words.h"
#include "rom_reader.h"
#include "rom_watcher.h"
#include "text.h"

#include <nyxus/error.h>
#include <nyxus/image.h>
#include <nyxus/production.h>
#include <nyxus/rom.h>
#include <algorithm>

namespace tool {

namespace {

constexpr char kIncomplete[] = "the ROM is incomplete now, run the upgrade again";
constexpr char kStopped[] =
    "the ROM is incomplete; run the upgrade again before the camera is reset or unplugged";
constexpr char kUnread[] =
    "the ROM was written but not read back; 'nyxus compare FILE' does that, and 'nyxus reset' "
    "starts the new firmware";
constexpr char kUntouched[] = "nothing was written";
constexpr char kFinishing[] =
    "nyxus: interrupted: the ROM is completed first, which takes a few seconds; a second interrupt "
    "stops at once\n";

/// What an end means for the camera when its ROM holds this.
const char* consequence_of(RomContents rom)
{
    switch (rom) {
        case RomContents::kUnchanged:
            return kUntouched;
        case RomContents::kUnverified:
            return kUnread;
        default:
            return kIncomplete;
    }
}

/// Puts it in front of the brackets at the end, which tell where in the library a failure began.
std::string with_advice(std::string text, const char* advice)
{
    text.insert(std::min(text.rfind(" ["), text.size()), std::string("; ") + advice);
    return text;
}

Failure program_failure(RomWatcher::Phase phase, int32_t status, RomContents rom, bool interrupted)
{
    const std::string doing =
        std::string(interrupted ? "interrupted; " : "") + phase_text(phase) + " failed";
    const Failure failure = library_failure(doing, status, consequence_of(rom));
    if (interrupted)
        return {kExitInterrupted, failure.text()};
    // The flash's status is awaited while it is unlocked; nothing has been erased yet.
    const bool locked = phase == RomWatcher::Phase::kPreparing && failure.code() == kExitTimeout;
    return {locked ? kExitProtected : failure.code(), failure.text()};
}

/// What the camera reports to run; "" for the firmware in its chip.
std::string running(const Camera& camera)
{
    return camera.runs_external_firmware()
               ? format("0x%04X 0x%04X", camera.device().wExtFwVer, camera.device().wExtSensorApId)
               : "";
}

/// Whether the camera runs what its ROM holds.
bool runs_its_rom(const Camera& camera)
{
    return camera.runs_external_firmware() && camera.rom_state() == RomState::kFirmware &&
           is_rom_unchanged_since_start(camera.entry(), running(camera));
}

void program(Console& console, Camera& camera, bool with_mfi, RomContents& rom)
{
    RomWatcher watcher(console.display(), firmware().size() + (with_mfi ? mfi().size() : 0));
    const bool ran_its_rom = runs_its_rom(camera);
    rom_will_change(camera);
    last_words::set_consequence(kStopped, to_text(RomContents::kIncomplete));
    last_words::postpone_interrupts(kFinishing);
    int32_t status = 0;
    {
        const Watching watching(console, watcher);
        status = MP_FwUpgrade(&camera.device(), with_mfi ? nyxus_mfi_bin : nullptr);
    }
    if (status == 0) {
        rom = RomContents::kUnverified;
    } else if (watcher.phase() != RomWatcher::Phase::kPreparing) {
        rom = RomContents::kIncomplete;
    } else if (ran_its_rom) {
        forget_change(camera.entry());
    }
    last_words::set_consequence(consequence_of(rom), to_text(rom));
    const bool interrupted = last_words::stop_postponing();
    if (status != 0) {
        console.display().abandon();
        throw program_failure(watcher.phase(), status, rom, interrupted);
    }
    console.display().end();
    if (interrupted)
        throw Failure(kExitInterrupted, std::string("interrupted: ") + kUnread);
}

std::vector<uint8_t> read_back(Console& console, Camera& camera, const Part& part, RomContents rom)
{
    try {
        return read_rom(console, camera, part.reading, part.address,
                        static_cast<uint32_t>(part.bytes.size()));
    } catch (const Failure& failure) {
        throw Failure(failure.code(), with_advice(failure.text(), consequence_of(rom)));
    }
}

void verify(Console& console, Camera& camera, const Part& part, RomContents& rom)
{
    const std::vector<uint8_t> read = read_back(console, camera, part, rom);
    const Difference difference = find_difference(read, part.bytes);
    if (difference.count == 0)
        return;
    rom = RomContents::kIncomplete;
    const size_t first = difference.first_offsets.front();
    throw Failure(
        kExitMismatch,
        format("the ROM does not hold what was written: %zu of %zu bytes differ, the first "
               "one at 0x%04zX (ROM %02X, image %02X)",
               difference.count, read.size(), part.address + first, read[first],
               part.bytes[first]) +
            "; " + kIncomplete);
}

void program_and_verify(Console& console, Camera& camera, const Arguments& arguments, bool with_mfi,
                        RomContents& rom)
{
    if (rom != RomContents::kUnverified) // else the camera was lost while it was read back
        program(console, camera, with_mfi, rom);
    if (arguments.skip_verify)
        return last_words::set_consequence("", to_text(rom));
    for (const Part& part : parts_to_install(with_mfi))
        verify(console, camera, part, rom);
    rom = RomContents::kNew;
    last_words::set_consequence("", to_text(rom));
}

/// A camera that goes by the same serial number is the same one. Without firmware it may have none;
/// should that be another camera, it has no firmware to lose, but it must not get this serial
/// number.
bool is_same_camera(const CameraEntry& before, const Camera& now, const Arguments& arguments)
{
    const std::string& serial = now.entry().serial;
    if (!serial.empty())
        return serial == before.serial;
    return !now.runs_external_firmware() && arguments.serial.empty();
}

/// What sits at the port now has no backup of ours, and may be the next camera.
void refuse_other_camera(const CameraEntry& before, const Camera& now, const Arguments& arguments)
{
    if (is_same_camera(before, now, arguments))
        return;
    const std::string lost =
        before.serial.empty() ? "without a serial number" : "with serial number " + before.serial;
    throw Failure(kExitCameraLost, now.name() + " is at port " + before.port_path +
                                       " now, but perhaps not the camera " + lost +
                                       " that went away, so it is left alone");
}

/// The images fitted the lost camera.
void check_images_again(const Camera& camera, bool with_mfi)
{
    try {
        check_images(camera, with_mfi);
    } catch (const Failure&) {
        throw Failure(kExitCameraLost, "another kind of camera, " + camera.name() +
                                           ", has come back and is left alone");
    }
}

/// Gives the lost camera up and waits for its return.
void await_return(Console& console, Camera& camera, const Arguments& arguments, bool with_mfi)
{
    Display& display = console.display();
    const CameraEntry entry = camera.entry();
    const uint32_t eeprom_bytes = camera.is_spi() ? 0 : camera.device().dwExtRomSize;
    camera.give_up();
    display.begin("waiting for the camera", 0);
    camera = Camera::open(wait_for_return(console, entry, arguments.return_wait_s()));
    console.drain();
    display.end();
    refuse_other_camera(entry, camera, arguments);
    if (camera.rom_state() == RomState::kUnknown && eeprom_bytes != 0)
        camera.assume_eeprom(eeprom_bytes);
    check_images_again(camera, with_mfi);
}

/// The same; a failure tells of the loss, too, and of what it means for the ROM.
void overcome_loss(Console& console, Camera& camera, const Arguments& arguments, bool with_mfi,
                   const Failure& loss)
{
    console.display().warn("nyxus: " + loss.text());
    try {
        await_return(console, camera, arguments, with_mfi);
    } catch (const Failure& failure) {
        console.display().abandon();
        throw Failure(kExitCameraLost, failure.text() + "; before: " + loss.text());
    }
}

} // namespace

std::vector<Part> parts_to_install(bool with_mfi)
{
    std::vector<Part> parts{{"verifying", 0, firmware()}};
    if (with_mfi)
        parts.push_back({"verifying MFi", NYXUS_MFI_ROM_ADDR, mfi()});
    return parts;
}

uint32_t replaced_bytes(const Camera& camera)
{
    constexpr uint32_t kReachable = 0x10000; // the controller runs from the first block only
    return std::min(camera.device().dwExtRomSize, kReachable);
}

std::vector<uint8_t> read_replaced(Console& console, Camera& camera)
{
    const char* const unchanged = to_text(RomContents::kUnchanged);
    last_words::set_consequence(kUntouched, unchanged);
    std::vector<uint8_t> contents = read_rom(console, camera, "reading", 0, replaced_bytes(camera));
    last_words::set_consequence("", unchanged);
    return contents;
}

void back_up(Console& console, const Camera& camera, const Arguments& arguments,
             std::span<const uint8_t> contents)
{
    const std::string remark = reserved_area_remark(camera, contents, arguments);
    if (!remark.empty())
        console.display().note(remark);
    if (arguments.skip_backup ||
        std::ranges::all_of(contents, [](uint8_t byte) { return byte == 0xFF; }))
        return;
    const std::string path =
        keep_backup(camera.entry(), contents, runs_its_rom(camera) ? Proven::kYes : Proven::kNo)
            .string();
    console.display().note("backup of the ROM: " + path);
}

std::string reserved_area_remark(const Camera& camera, std::span<const uint8_t> contents,
                                 const Arguments& arguments)
{
    constexpr size_t kAreaBytes = 256;
    constexpr size_t kAreaEnd = SPI_RESERVED_ADDR + kAreaBytes;
    if (!camera.is_spi() || firmware().size() > SPI_RESERVED_ADDR)
        return "";
    const bool known = contents.size() >= kAreaEnd;
    if (known && std::ranges::all_of(contents.subspan(SPI_RESERVED_ADDR, kAreaBytes),
                                     [](uint8_t byte) { return byte == 0xFF; }))
        return "";
    return format("the reserved area (0x%04X)%s is erased, too; ", SPI_RESERVED_ADDR,
                  known ? "" : ", if it is in use,") +
           (arguments.skip_backup ? "'nyxus reserved read FILE' keeps it" : "the backup holds it");
}

void rom_will_change(const Camera& camera)
{
    remember_change(camera.entry(), running(camera));
}

void install(Console& console, Camera& camera, const Arguments& arguments, bool with_mfi,
             RomContents& rom)
{
    try {
        program_and_verify(console, camera, arguments, with_mfi, rom);
    } catch (const Failure& failure) {
        if (failure.code() != kExitCameraLost)
            throw;
        overcome_loss(console, camera, arguments, with_mfi, failure);
        console.display().note("once more: " + camera.name());
        program_and_verify(console, camera, arguments, with_mfi, rom);
    }
}

} // namespace tool
