// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "known_units.h"

namespace nyxus::engine {

/// What is kept of one camera. It stays the same unit for the object's life, also when the camera
/// comes back with another serial number.
class UnitLog {
public:
    /// Writes nothing. kFile.
    static Result<UnitLog> of(const Backups& backups, const Camera& camera);

    const Identity& identity() const { return identity_; }
    RomHistory history(const std::string& running) const;

    /// Keeps what the ROM holds. kBackupNotKept.
    Result<Backup> keep(const Camera& camera, Bytes contents);
    /// An operation begins: its facts. kJournalNotKept.
    Status begin(JournalLine facts);
    /// A step of the latest operation; where nothing is known of the unit, nothing happens.
    /// kJournalNotKept.
    Status note(JournalStep step);
    /// A camera that was lost is back, perhaps with another serial number. kJournalNotKept.
    Status note_return(const Camera& returned);
    /// The camera has come back from a restart. Success when it runs what its ROM is known to hold,
    /// or kNotStarted.
    Status note_restart(const Camera& returned);
    /// What note_restart() has said last of a camera that still runs the same.
    Status latest_restart(const Camera& camera) const;

private:
    UnitLog(std::filesystem::path state, const Camera& camera)
        : state_(std::move(state)), sighting_(sight(camera)), running_(camera.running())
    {
    }

    void make_sure_of_unit();
    void update_here();
    void update(const Camera& returned);
    void write(JournalLine line);
    /// What cameras run that have started from this firmware; "" where nobody knows for certain.
    std::string version_of(const std::string& image) const;
    std::pair<Started, std::string> start_of(const Camera& camera) const;

    std::filesystem::path state_;
    Sighting sighting_;
    const std::string running_; ///< when it was opened
    Identity identity_;
};

/// kNotStarted. "": nobody knows what is expected.
Status not_started(const Camera& camera, const std::string& expected);

/// Of a unit whose camera reports this; without opening it, nothing.
RomHistory history_of(const Identity& identity, const std::optional<std::string>& running,
                      const std::function<std::string(const std::string&)>& version_of);

} // namespace nyxus::engine
