// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command_line.h"
#include "session/result.h"
#include "terminal/failure.h"

#include <nyxus/engine/manifest.hpp>
#include <nyxus/engine/upgrade.hpp>
#include <string>

// What the commands that program the ROM have in common.
namespace tool {

/// How the ROM is programmed.
struct Programming {
    uint32_t eeprom_kib = 0; ///< 0: the user has not said that there is one
    std::string keep;        ///< "" for the engine's choice
    std::string discard;     ///< what is not kept: "mfi", "reserved", or both with a comma
    bool skip_verify = false;
    bool restart = false;
    bool always = false;               ///< also what the ROM holds already
    std::string operation = "upgrade"; ///< what the journal calls it
};
/// The options that say so, but for the last two.
void add_programming(Command& command, Arguments& arguments, Programming& how);
engine::UpgradeOptions upgrade_options(const Arguments& arguments, const Programming& how);

/// The images that the command line names.
struct Sources {
    std::string file;
    std::string mfi_file;
    std::string manifest; ///< file that names the images; "" for `file`
    std::string sha256;   ///< of `file`; "" for any
    std::string mfi_serial;
    bool allow_downgrade = false;
};

/// What the files of the command line offer to cameras.
struct Offer {
    std::vector<engine::ChipImages> images;
    std::optional<engine::AcceptedManifest> manifest = {};
};
/// A Failure for what may not be used.
Offer load_images(const Sources& sources);
/// Says whose images they are, and remembers that they are used.
void take(Console& console, const Arguments& arguments, const Offer& offer);
/// What a manifest says of itself: "'door camera' 2.1.0, signed by 0123456789ABCDEF (comment)".
std::string text_of(const engine::AcceptedManifest& manifest);
/// The images for a camera, with the serial number in them.
engine::Images choose_images(const Sources& sources, const Offer& offer, const Camera& camera);

/// "23100 bytes of firmware, read back and equal, from version 0x0100 to 0x0205"
std::string what_is_done(const Programming& how, const engine::Images& images,
                         const Result& result);
inline constexpr char kUpToDate[] = "already up to date: the ROM equals the image";

/// So many are programmed.
uint64_t image_bytes(const engine::Images& images);
/// What is to be installed.
void describe(Result& result, const engine::Images& images);

/// Reads what an upgrade reads first, as a phase of the display.
std::vector<uint8_t> read_before(Console& console, Camera& camera,
                                 const engine::UpgradeOptions& options);

/// Programs the images; the result's report is filled in at any end. False when the ROM held them
/// already.
bool program(Console& console, Camera& camera, const Arguments& arguments, const Programming& how,
             const engine::Images& images, Result& result);

/// What --dry-run tells in its place; a plan that writes nothing means that the ROM is up to date.
void print_plan(Console& console, const Arguments& arguments, Camera& camera,
                const engine::Images& images, const engine::Plan& plan);

/// Restarts the camera, waits for its return and says how it came back. A Failure when it does not
/// run from its ROM, or not what was programmed, or does not report the version of the images, if
/// any.
void start_new_firmware(Console& console, const Arguments& arguments, Camera camera, Result& result,
                        const engine::Images* images = nullptr);

/// What to do when the work has ended with this in the ROM; "" where the message says all.
std::string advice_after(engine::RomContents rom);
/// ", or 'nyxus recover' to put the backup 'FILE' back": the other way out of an incomplete ROM.
std::string way_back(const std::string& backup);
/// What to do about this, whatever the ROM holds; "" for nothing in particular.
const char* advice_for(engine::Reason reason);
/// Why a change of the ROM has failed or was interrupted, and what to do.
Failure failure_of(const engine::Report& report);

} // namespace tool
