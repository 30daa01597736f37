// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What is kept of each single camera: copies of what its ROM held before it was changed, and a
 * journal that tells what state the ROM is in.
 */
#ifndef NYXUS_ENGINE_BACKUPS_HPP
#define NYXUS_ENGINE_BACKUPS_HPP

#include <nyxus/engine/camera.hpp>

#include <filesystem>
#include <vector>

namespace nyxus::engine {

/// Whether a camera has started from exactly what a backup holds.
enum class Started { kNo, kYes, kUnknown };
/// For people and programs: "yes".
NYXUS_ENGINE_API const char* to_text(Started started);

/// What a ROM held at some time, and what is known of it.
struct Backup {
    std::string name;           ///< "A0001234-5f3c0a1b2c4d/000003": unit and sequence
    std::filesystem::path file; ///< the bytes, and nothing else
    uint32_t sequence = 0;      ///< counts on in each unit, whatever the clock says; 0: unknown
    std::string time = {};      ///< UTC, "2026-05-01T12:00:00Z"
    std::string chip = {};
    std::string serial = {};  ///< printable; "" without one
    std::string port = {};    ///< where the camera was
    std::string running = {}; ///< Camera::running() then
    uint64_t bytes = 0;
    std::string sha256 = {}; ///< of the bytes; "" where nobody has noted it
    Started started = Started::kUnknown;
    std::string how = {}; ///< that is known
};

/// What the journal says of a ROM, unless the camera contradicts it.
enum class RomRecord {
    kNone,        ///< no change of it is known
    kIncomplete,  ///< something between two contents
    kBlank,       ///< erased
    kWritten,     ///< complete, but neither read back nor started since
    kVerified,    ///< complete and read back, but not started since
    kStarted,     ///< the camera has started from it
    kNotStarting, ///< complete, but the camera has come back with the firmware in its chip
    kElsewhere,   ///< unknown: the camera reports what the journal does not expect
};
/// For programs: "incomplete".
NYXUS_ENGINE_API const char* to_text(RomRecord record);

/// The state of a camera's ROM, as of some time.
struct RomHistory {
    RomRecord rom = RomRecord::kNone;
    std::string since = {};     ///< UTC; "" with kNone
    std::string operation = {}; ///< what was done then: "upgrade"
    std::string backup = {};    ///< the file that holds what was there before; "" without one
    bool certain = true;        ///< false: of another camera, unless that is this one

    /// Firmware is not to be expected in it.
    bool needs_care() const
    {
        return rom == RomRecord::kIncomplete || rom == RomRecord::kBlank ||
               rom == RomRecord::kNotStarting;
    }
    /// "the ROM is incomplete since 2026-05-01T12:00:00Z (upgrade)"; "" with kNone.
    NYXUS_ENGINE_API std::string sentence() const;
};

/**
 * The store in a folder. Any number of programs and threads may use the same one; each user has a
 * store of his own. Blocks for the file system, and for a few seconds for another program that
 * writes about the same camera.
 *
 * A camera's *unit* is its chip with its USB serial number. Where that is missing, or another
 * camera that is connected or known has the same one, the port belongs to it, too. A unit whose
 * serial number changes stays the same one when it is restarted here, and when it shows up in its
 * port with a number that it had before, or that was written into it, while its ROM is not known to
 * have started. What could be the camera besides is a candidate: nothing is ever taken from one
 * unasked.
 *
 * In the folder "units" each unit has a folder of its own with unit.json, journal.jsonl and its
 * backups (docs/file-formats.md). What other users may write, or is reached through links, is
 * refused. Backups of earlier versions, in the folder "backups", are candidates for cameras whose
 * serial number their name begins with.
 *
 * The journal is this user's: where the camera reports other firmware than it expects, somebody
 * else has changed the ROM since, and its state is kElsewhere.
 */
class Backups {
public:
    /// $XDG_STATE_HOME/nyxus, or ~/.local/state/nyxus; for a user without a home folder every use
    /// fails.
    NYXUS_ENGINE_API Backups();
    explicit Backups(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// What it was made with.
    const std::filesystem::path& state_folder() const { return folder_; }

    /// All of them, by unit and sequence; those of a camera only. What cannot be used is left out,
    /// and told in `problems`. kFile.
    NYXUS_ENGINE_API Result<std::vector<Backup>> list(
        std::vector<std::string>* problems = nullptr) const;
    NYXUS_ENGINE_API Result<std::vector<Backup>> list(const CameraInfo& camera) const;
    /// By its name, or by the path of its file. kNoBackup, kFile.
    NYXUS_ENGINE_API Result<Backup> find(const std::string& name) const;
    /// The latest one that this camera has started from. kNoBackup; kUncertainBackup where it is
    /// not certain which one is the camera's: see candidates().
    NYXUS_ENGINE_API Result<Backup> latest(const Camera& camera) const;
    /// What may be this camera's and is not known to be useless.
    NYXUS_ENGINE_API std::vector<Backup> candidates(const Camera& camera) const;
    /// Its bytes. kFile; kMismatch when they are not what was kept.
    NYXUS_ENGINE_API Result<std::vector<uint8_t>> read(const Backup& backup) const;
    /// All but the `keep` latest ones of each unit, the latest one that the camera has started
    /// from, and the one that an open journal names. They are removed, or only told. kFile.
    NYXUS_ENGINE_API Result<std::vector<Backup>> prune(unsigned keep, bool only_tell) const;

    /// The state of a camera's ROM. Without opening it the journal alone tells.
    NYXUS_ENGINE_API RomHistory history(const Camera& camera) const;
    NYXUS_ENGINE_API RomHistory history(const CameraInfo& camera) const;

private:
    std::filesystem::path folder_;
};

} // namespace nyxus::engine

#endif
