// SPDX-License-Identifier: Apache-2.0
// NNNNNN.rom, the bytes, and NNNNNN.json, the facts, in a unit's folder.
#pragma once

#include "known_units.h"

namespace nyxus::engine {

/// In the order of their sequence. Bytes without facts, and facts of another unit, do not count.
std::vector<BackupFacts> backups_in(const KnownUnit& known);
/// Fills in sequence, name, file and digests. The folder is locked. Throws std::system_error.
Backup add_backup(const KnownUnit& known, BackupFacts facts, Bytes contents);
/// The folder is locked.
void remove_backup(const KnownUnit& known, uint32_t sequence);
/// "000003"
std::string sequence_text(uint32_t sequence);

/// Those of earlier versions, by their names.
std::vector<Backup> old_backups(const std::filesystem::path& state);
/// Whether such a one is of a camera with this serial number, or port where there is none.
bool may_be_of(const Backup& old, const Sighting& sighting);

/// Verified where there is a digest. Throws std::system_error; nothing when it is wrong.
std::optional<std::vector<uint8_t>> contents_of(const std::filesystem::path& state,
                                                const Backup& backup);

} // namespace nyxus::engine
