// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera_list.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>

// Copies of ROM contents that an upgrade replaces, in the user's state folder.
namespace tool {

/// $XDG_STATE_HOME/nyxus/backups, or ~/.local/state/nyxus/backups.
std::filesystem::path backup_folder();

/// Whether a camera ran the firmware that its backup holds.
enum class Proven { kYes, kNo };

/// Writes a new file, named by serial number and time; it is complete on disk on return. A Failure
/// says that nothing was written to the camera.
std::filesystem::path keep_backup(const CameraEntry& camera, std::span<const uint8_t> contents,
                                  Proven proven);

/// The latest proven one of a camera.
std::optional<std::filesystem::path> newest_backup(const CameraEntry& camera);

} // namespace tool
