// SPDX-License-Identifier: Apache-2.0
// What the files of a unit say. Lines and documents are JSON; what is none is nothing.
#pragma once

#include <nyxus/engine/backups.hpp>

namespace nyxus::engine {

/// unit.json.
struct Unit {
    std::string id; ///< its folder's name, which the file does not repeat
    std::string chip;
    std::vector<std::string> serials; ///< bytes as the camera tells them; the latest one first
    std::string port;                 ///< where it was last
    bool goes_by_port = false;
    std::string first_seen;
    std::string last_seen;

    const std::string& serial() const { return serials.front(); }
};

/// What happens to a ROM. In the journal before it begins.
enum class JournalStep {
    kBegins,     ///< an operation; nothing has changed yet
    kErasing,    ///< from now on it is incomplete
    kWriting,    ///< the same
    kWritten,    ///< it is complete
    kVerified,   ///< and has been read back
    kDiffers,    ///< it does not hold what was written
    kErased,     ///< it is blank
    kStarted,    ///< the camera came back and runs what it holds
    kNotStarted, ///< the camera came back and does not
};

/// A line of journal.jsonl.
struct JournalLine {
    JournalStep step = JournalStep::kBegins;
    std::string time = {};
    std::string operation = {}; ///< "upgrade"
    std::string running = {};   ///< Camera::running() before; with kStarted and kNotStarted: after
    std::string image = {};     ///< SHA-256 of the firmware that is written; "" for another change
    std::string file = {};      ///< SHA-256 of the file that it was read from
    std::string serial = {};    ///< the one that is written into this ROM; "" if none is
    std::string backup = {};    ///< "000003", of what was there before; "" without one
    std::vector<std::string> kept = {}; ///< parts of the ROM that stay: "MFi image (...)"
};

std::string to_text(const Unit& unit);
std::optional<Unit> parse_unit(const std::string& text);
std::string to_text(const JournalLine& line);
std::optional<JournalLine> parse_journal_line(const std::string& text);

/// What is known of a backup, beside its bytes. `unit` tells where it belongs, whatever folder it
/// lies in; `image` is the SHA-256 of the firmware that it begins with.
struct BackupFacts {
    Backup backup;
    std::string unit;
    std::string image;
};
std::string to_text(const BackupFacts& facts);
/// Without name and file.
std::optional<BackupFacts> parse_backup_facts(const std::string& text);

/// "2026-05-01T12:00:00Z"
std::string utc_now();

} // namespace nyxus::engine
