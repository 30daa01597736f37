// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/arguments.h"
#include "session/camera.h"
#include "terminal/events.h"
#include "terminal/failure.h"

#include <nyxus/engine/manifest.hpp>
#include <nyxus/engine/upgrade.hpp>
#include <string>

// What the commands that program the ROM have in common.
namespace tool {

/// What the files of the command line offer to cameras.
struct Offer {
    std::vector<engine::ChipImages> images;
    std::optional<engine::AcceptedManifest> manifest = {};
};
/// A Failure for what may not be used.
Offer load_images(const Arguments& arguments);
/// Says whose images they are, and remembers that they are used.
void take(Console& console, const Arguments& arguments, const Offer& offer);
/// What a manifest says of itself: "'door camera' 2.1.0, signed by 0123456789ABCDEF (comment)".
std::string text_of(const engine::AcceptedManifest& manifest);

/// The images for a camera, with the serial number in them.
engine::Images choose_images(const Arguments& arguments, const Offer& offer, const Camera& camera);
engine::UpgradeOptions upgrade_options(const Arguments& arguments);

/// How an upgrade has ended.
std::string what_is_done(const Arguments& arguments, const engine::Images& images,
                         const Result& result);
inline constexpr char kUpToDate[] = "already up to date: the ROM equals the image";

/// What is to be installed, and what came of it.
void describe(Result& result, const engine::Images& images);
void describe(Result& result, const engine::Report& report);

/// Reads what an upgrade reads first, as a phase of the display.
std::vector<uint8_t> read_before(Console& console, const Arguments& arguments, Camera& camera,
                                 const engine::UpgradeOptions& options);

/// Programs the images and says what has been done; `rom` and `bytes` are filled in at any end.
/// False when the ROM held them already.
bool program(Console& console, Camera& camera, const Arguments& arguments,
             const engine::Images& images, Result& result);

/// What --dry-run tells in its place. `before` is what has been read of the ROM, perhaps nothing.
void print_plan(Console& console, const Arguments& arguments, Camera& camera,
                const engine::Images& images, const engine::UpgradeOptions& options,
                nyxus::Bytes before = {});

/// What to do when the work has ended with this in the ROM; "" where the message says all.
std::string advice_after(engine::RomContents rom);
/// ", or 'nyxus recover' to put the backup 'FILE' back": the other way out of an incomplete ROM.
std::string way_back(const std::string& backup);
/// Changes the ROM in another way than by an upgrade, with backup and journal. `write` unlocks,
/// writes, locks and looks.
void change_rom(Console& console, const Arguments& arguments, Camera& camera,
                const std::string& operation, const std::function<engine::Status()>& write);
/// What to do about this, whatever the ROM holds; "" for nothing in particular.
const char* advice_for(engine::Reason reason);
/// Why a change of the ROM has failed or was interrupted, and what to do.
Failure failure_of(const engine::Report& report);

} // namespace tool
