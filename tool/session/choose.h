// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/arguments.h"
#include "session/camera.h"

namespace tool {

/// The chosen camera, opened and probed. With --wait it may still be plugged in.
Camera open_chosen(Console& console, const Arguments& arguments,
                   engine::Use use = engine::Use::kTransfers);
/// The same, with an external ROM that can be read and written. `eeprom_kib`: what the user says of
/// a blank one; 0: nothing.
Camera open_with_rom(Console& console, const Arguments& arguments, uint32_t eeprom_kib = 0);
/// The cameras that match the user's choice; with --wait they may still be plugged in.
std::vector<CameraEntry> matching_cameras(Console& console, const Arguments& arguments);
/// All of them, 1-2 before 1-10; a Failure when there is none, or one was chosen.
std::vector<CameraEntry> every_camera(Console& console, const Arguments& arguments);

} // namespace tool
