// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Changing the external ROM: upgrade, recover, erase.
 *
 * Each blocks for up to minutes, and without a limit when a connected camera does not answer.
 */
#ifndef NYXUS_ENGINE_UPGRADE_HPP
#define NYXUS_ENGINE_UPGRADE_HPP

#include <nyxus/engine/backups.hpp>
#include <nyxus/engine/plan.hpp>
#include <nyxus/engine/rom.hpp>

namespace nyxus::engine {

/// How a change of the ROM ended.
struct Report {
    Status status = {};
    RomContents rom = RomContents::kUnchanged; ///< at any end
    bool up_to_date = false;                   ///< nothing had to be done
    bool stopped = false;       ///< on request; a status of another reason failed before that
    bool left_unlocked = false; ///< the ROM is complete, but could not be locked again
    std::filesystem::path backup = {}; ///< of what was replaced; "" if none was kept
    uint64_t bytes = 0;                ///< of the images that were written
};

/**
 * Reads the ROM, keeps what it holds, unlocks, erases (SPI flash), writes MFi image, body and,
 * last, the header, locks, reads everything back. A camera that goes away in the middle and comes
 * back is programmed once more, or read back once more when that is all that is left; another
 * camera in its port is left alone. The camera is closed when it was lost and has not come back.
 *
 * A board that protects its EEPROM by GPIO 0 needs Camera::set_gpio(0, false) first.
 */
NYXUS_ENGINE_API Report upgrade(Camera& camera, const Images& images, const UpgradeOptions& options,
                                const Backups& backups, const Caller& caller);

/// What brings a camera back: upgrade() with these images and the option `always`.
struct Recovery {
    std::string file;
    Images images;
};
/// From a file, or "" for the camera's latest proven backup. kNothingToRecover for a camera that
/// runs its firmware, unless that does not matter; kNoBackup, kFile, kWrongImage.
NYXUS_ENGINE_API Result<Recovery> find_recovery(const Camera& camera, const Backups& backups,
                                                const std::string& file, bool although_healthy);

/// kNotSupported for an EEPROM. Nothing blocks.
NYXUS_ENGINE_API Status check_erasable(const Camera& camera);
/// Erases an SPI flash and looks whether it is blank; the camera runs the firmware in its chip
/// after the next restart.
NYXUS_ENGINE_API Report erase(Camera& camera, const Backups& backups, const Caller& caller);
/// Bytes that it looks at.
NYXUS_ENGINE_API uint32_t erased_bytes(const Camera& camera);

} // namespace nyxus::engine

#endif
