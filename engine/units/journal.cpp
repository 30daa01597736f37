// SPDX-License-Identifier: Apache-2.0
#include "journal.h"

#include <sstream>

namespace nyxus::engine {

namespace {

constexpr char kJournalFile[] = "journal.jsonl";
constexpr size_t kMostJournal = 0x40000;
constexpr size_t kLongJournal = 0x20000;
constexpr size_t kKeptLines = 100;

std::string text_of(const files::Folder& unit)
{
    const auto bytes = unit.read(kJournalFile, kMostJournal);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "";
}

/// The ROM's state after a step; nothing where the step does not change it.
std::optional<RomRecord> state_after(JournalStep step, RomRecord before)
{
    switch (step) {
        case JournalStep::kBegins:
            break;
        case JournalStep::kErasing:
        case JournalStep::kWriting:
        case JournalStep::kDiffers:
            return RomRecord::kIncomplete;
        case JournalStep::kWritten:
            return RomRecord::kWritten;
        case JournalStep::kVerified:
            return RomRecord::kVerified;
        case JournalStep::kErased:
            return RomRecord::kBlank;
        case JournalStep::kStarted:
            return RomRecord::kStarted;
        case JournalStep::kNotStarted:
            if (before != RomRecord::kIncomplete && before != RomRecord::kBlank)
                return RomRecord::kNotStarting;
            break;
    }
    return std::nullopt;
}

} // namespace

std::vector<JournalLine> read_journal(const files::Folder& unit)
{
    std::istringstream text(text_of(unit));
    std::vector<JournalLine> lines;
    for (std::string line; std::getline(text, line);) {
        if (auto parsed = parse_journal_line(line))
            lines.push_back(*std::move(parsed));
    }
    return lines;
}

JournalState state_of(const std::vector<JournalLine>& lines)
{
    JournalState state;
    for (const JournalLine& line : lines) {
        if (const auto rom = state_after(line.step, state.rom))
            state = {*rom, line};
    }
    return state;
}

void write_journal(const files::Folder& unit, const JournalLine& line)
{
    if (text_of(unit).size() > kLongJournal) {
        const std::vector<JournalLine> lines = read_journal(unit);
        std::string text;
        for (size_t i = lines.size() - std::min(lines.size(), kKeptLines); i < lines.size(); ++i)
            text += to_text(lines[i]) + "\n";
        unit.put(kJournalFile, text);
    }
    unit.append_line(kJournalFile, to_text(line));
}

RomRecord with_regard_to(const JournalState& state, const std::string& running,
                         const std::string& known_version)
{
    const std::string& before = state.line.running;
    const bool runs_rom = !running.empty();
    const bool can_be_new = known_version.empty() || running == known_version;
    switch (state.rom) {
        case RomRecord::kIncomplete: // an end right before the end leaves it complete
            if (!runs_rom || running == before)
                return state.rom;
            return running == known_version ? RomRecord::kStarted : RomRecord::kElsewhere;
        case RomRecord::kBlank:
            return !runs_rom || running == before ? state.rom : RomRecord::kElsewhere;
        case RomRecord::kWritten:
        case RomRecord::kVerified: // it goes on running what it held before
            if (running == before)
                return state.rom;
            if (!runs_rom)
                return RomRecord::kNotStarting;
            return can_be_new ? RomRecord::kStarted : RomRecord::kElsewhere;
        case RomRecord::kStarted:
            return running == before ? state.rom : RomRecord::kElsewhere;
        case RomRecord::kNotStarting:
            return runs_rom ? RomRecord::kElsewhere : state.rom;
        case RomRecord::kNone:
        case RomRecord::kElsewhere:
            break;
    }
    return state.rom;
}

} // namespace nyxus::engine
