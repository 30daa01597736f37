// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "arguments.h"
#include "camera.h"
#include "console.h"
#include "events.h"

#include <cstdint>
#include <span>
#include <string>

// The loaded images on their way into the ROM.
namespace tool {

/// What the upgrade wants in the ROM.
struct Part {
    const char* reading; ///< name of the phase that reads it back
    uint32_t address;
    std::span<const uint8_t> bytes;
};
std::vector<Part> parts_to_install(bool with_mfi);

/// The part of the ROM that an installation may change and the camera can use.
std::vector<uint8_t> read_replaced(Console& console, Camera& camera);
uint32_t replaced_bytes(const Camera& camera);
/// Keeps it as a backup, unless it is blank or the user wants none, and says where.
void back_up(Console& console, const Camera& camera, const Arguments& arguments,
             std::span<const uint8_t> contents);

/// What to say when the flash's reserved area is erased without being written again; "" when it
/// is not. `contents` is what has been read of the ROM, perhaps nothing.
std::string reserved_area_remark(const Camera& camera, std::span<const uint8_t> contents,
                                 const Arguments& arguments);

/// Call it before anything is erased or written: a backup that is made before the camera has
/// started again is not proven then.
void rom_will_change(const Camera& camera);

/// Programs the loaded images and reads them back. A camera that goes away in the middle and comes
/// back is programmed once more. Interrupts (Ctrl-C) wait for a safe point. `rom` tells, at any
/// end, what the ROM holds.
void install(Console& console, Camera& camera, const Arguments& arguments, bool with_mfi,
             RomContents& rom);

} // namespace tool
