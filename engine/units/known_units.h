// SPDX-License-Identifier: Apache-2.0
// Which unit a camera is.
#pragma once

#include "files/folder.h"
#include "journal.h"

namespace nyxus::engine {

/// A unit that the store knows.
struct KnownUnit {
    Unit unit;
    files::Folder folder;

    JournalState state() const { return state_of(read_journal(folder)); }
};

/// What a camera shows of itself.
struct Sighting {
    std::string chip; ///< "" when it has not been opened
    std::string serial;
    std::string port;
    bool runs_mask_rom = false;          ///< as far as that is known
    std::vector<std::string> twin_ports; ///< of other cameras with its serial number
};
/// The bus tells the serial number as it is; that of `info` may be printable.
Sighting sight(const CameraInfo& info);
Sighting sight(const Camera& camera);

/// What a camera is.
struct Identity {
    std::optional<KnownUnit> unit = std::nullopt; ///< nothing: a new one
    bool goes_by_port = false;                    ///< the unit does, or the new one has to
    bool is_certain = true; ///< false: a candidate is as likely, if it needs care
    std::vector<KnownUnit> candidates = {};
};

/// All in the state folder. What cannot be used is left out, and told in `problems`. Throws
/// std::system_error.
std::vector<KnownUnit> known_units(const std::filesystem::path& state,
                                   std::vector<std::string>* problems = nullptr);
Identity identify(const std::filesystem::path& state, const Sighting& sighting);
/// A new unit's folder. Throws std::system_error.
KnownUnit add_unit(const std::filesystem::path& state, const Sighting& sighting, bool goes_by_port);
/// Writes down where a unit has just been seen. Its folder is locked.
void update_unit(KnownUnit& known, const Sighting& sighting);

} // namespace nyxus::engine
