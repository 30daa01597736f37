// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera_list.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

// Copies of ROM contents that an upgrade replaces, in the user's state folder.
namespace tool {

/// $XDG_STATE_HOME/nyxus/backups, or ~/.local/state/nyxus/backups.
std::filesystem::path backup_folder();

/// Whether a camera has started from what its backup holds.
enum class Proven { kYes, kNo };

/// Writes a new file, named by serial number and time; it is complete on disk on return. A Failure
/// says that nothing was written to the camera.
std::filesystem::path keep_backup(const CameraEntry& camera, std::span<const uint8_t> contents,
                                  Proven proven);

/// The latest proven one of a camera. A Failure when the folder cannot be read.
std::optional<std::filesystem::path> newest_backup(const CameraEntry& camera);

// A camera goes on running from its memory what the ROM held before. A file per camera says so
// until the camera has been seen to start, so that nothing is taken for proven that never ran.
// `running` is what the camera reports.

/// The ROM is about to change. Without a place for the file nothing is remembered; then there is
/// none for backups either.
void remember_change(const CameraEntry& camera, const std::string& running);
/// The camera has started since.
void forget_change(const CameraEntry& camera);
/// Whether the ROM is what it was when the camera started. A camera that reports something else
/// than when its ROM changed has started since.
bool is_rom_unchanged_since_start(const CameraEntry& camera, const std::string& running);

} // namespace tool
