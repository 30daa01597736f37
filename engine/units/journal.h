// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/folder.h"
#include "records.h"

namespace nyxus::engine {

/// What a journal comes to, whatever the camera says.
struct JournalState {
    RomRecord rom = RomRecord::kNone;
    JournalLine line = {}; ///< that says so
};

/// The lines of a unit's journal. A torn one is passed over.
std::vector<JournalLine> read_journal(const files::Folder& unit);
JournalState state_of(const std::vector<JournalLine>& lines);
/// On the disk on return. The folder is locked. Of a long journal the latest lines stay.
void write_journal(const files::Folder& unit, const JournalLine& line);

/// What the state is of a camera that reports this. `known_version` is what the firmware reports
/// that was written; "" where nobody knows.
RomRecord with_regard_to(const JournalState& state, const std::string& running,
                         const std::string& known_version);

} // namespace nyxus::engine
