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
    std::filesystem::path backup = {};  ///< of what was replaced; "" if none was kept
    uint64_t bytes = 0;                 ///< of the images that were written
    std::string version_before = {};    ///< Camera::version(); "" when it was not looked at
    std::string version_after = {};     ///< the same, of callers who have restarted it
    std::vector<std::string> kept = {}; ///< of an upgrade: parts of the ROM that stayed
};

/// "from version 0x0203 to 0x0205", "from the mask ROM to version 0x0205"; without `after`, which
/// is "" where nobody knows it, the first half.
NYXUS_ENGINE_API std::string version_change(const std::string& before, const std::string& after);

/**
 * Reads the ROM, keeps what it holds, unlocks, erases (SPI flash), writes MFi image, body and,
 * last, the header, locks, reads everything back. A camera that goes away in the middle and comes
 * back is programmed once more, or read back once more when that is all that is left; one whose ROM
 * does not hold what was left there is another one and left alone, and so is one with another
 * serial number where the ROM proves nothing. The camera is closed when it was lost and has not
 * come back.
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
/// From a file, or "" for the latest backup that the camera has started from. kNothingToRecover for
/// a camera that runs its firmware, unless that does not matter, or the journal says that its ROM
/// needs care; kNoBackup, kUncertainBackup, kFile, kWrongImage.
NYXUS_ENGINE_API Result<Recovery> find_recovery(const Camera& camera, const Backups& backups,
                                                const std::string& file, bool although_healthy);

/// kNotSupported for an EEPROM. Nothing blocks.
NYXUS_ENGINE_API Status check_erasable(const Camera& camera);
/// Keeps what an SPI flash holds, unless `backup` is false, erases it and looks whether it is
/// blank; the camera runs the firmware in its chip after the next restart.
NYXUS_ENGINE_API Report erase(Camera& camera, const Backups& backups, const Caller& caller,
                              bool backup = true);
/// Bytes that it looks at.
NYXUS_ENGINE_API uint32_t erased_bytes(const Camera& camera);

/// Writes into the customer's window of fingerprint readers, 0x2400 to 0x7FFF of their EEPROM, with
/// the same backup and the same journal, and reads back by the same path. Sets the time of
/// XU_SetWriteCycleTime() to 5 ms for good. kMismatch when the ROM does not hold what was written,
/// kOutOfRange for what is not in the window, kNotSupported for an SPI flash.
NYXUS_ENGINE_API Report write_window(Camera& camera, uint32_t address, Bytes bytes,
                                     const Backups& backups, const Caller& caller,
                                     bool backup = true);

/// Restarts the camera, which ends the object, and opens it again; the phase is kRestarting. From
/// then on the ROM is taken for what the camera has started from.
NYXUS_ENGINE_API Result<Camera> restart(Camera camera, unsigned wait_s, const Backups& backups,
                                        const Caller& caller);
/// kNotStarted unless the camera runs firmware from its ROM, and, after a restart() here, the one
/// that was programmed: what that reports is known once a camera has started from it. Blocks for
/// the file system.
NYXUS_ENGINE_API Status check_started(const Camera& camera, const Backups& backups);

} // namespace nyxus::engine

#endif
