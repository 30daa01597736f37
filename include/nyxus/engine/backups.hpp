// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Copies of ROM contents that an upgrade replaces, and whether a camera has started from them.
 */
#ifndef NYXUS_ENGINE_BACKUPS_HPP
#define NYXUS_ENGINE_BACKUPS_HPP

#include <nyxus/cpp/camera_list.hpp>
#include <nyxus/engine/status.hpp>

#include <filesystem>

namespace nyxus::engine {

/// Whether a camera has started from what its backup holds.
enum class Proven { kYes, kNo };

/// The store in a folder. Any number of programs and threads may use the same one. Blocks for the
/// file system.
class Backups {
public:
    /// $XDG_STATE_HOME/nyxus, or ~/.local/state/nyxus; for a user without a home folder every use
    /// fails.
    NYXUS_ENGINE_API Backups();
    explicit Backups(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// What it was made with.
    const std::filesystem::path& state_folder() const { return folder_; }
    /// Where the backups are.
    std::filesystem::path folder() const { return folder_ / "backups"; }

    /// Writes a new file, named by serial number and time; it is complete on disk on return.
    /// kBackupNotKept.
    NYXUS_ENGINE_API Result<std::filesystem::path> keep(const CameraInfo& camera, Bytes contents,
                                                        Proven proven) const;
    /// The latest proven one of a camera. kNoBackup; kFile when the folder cannot be read.
    NYXUS_ENGINE_API Result<std::filesystem::path> newest(const CameraInfo& camera) const;

    // A camera goes on running from its memory what the ROM held before. A file per camera says so
    // until the camera has been seen to start, so that nothing is taken for proven that never ran.
    // `running` is what the camera reports (Camera::running()).

    /// The ROM is about to change. Where the file cannot be written nothing is remembered; then
    /// there is no place for backups either.
    NYXUS_ENGINE_API void remember_change(const CameraInfo& camera,
                                          const std::string& running) const;
    /// The camera has started since.
    NYXUS_ENGINE_API void forget_change(const CameraInfo& camera) const;
    /// Whether the ROM is what it was when the camera started. A camera that reports something else
    /// than when its ROM changed has started since.
    NYXUS_ENGINE_API bool is_unchanged_since_start(const CameraInfo& camera,
                                                   const std::string& running) const;

private:
    std::filesystem::path change_file(const CameraInfo& camera) const;

    std::filesystem::path folder_;
};

} // namespace nyxus::engine

#endif
