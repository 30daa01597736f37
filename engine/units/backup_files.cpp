// SPDX-License-Identifier: Apache-2.0
#include "backup_files.h"

#include <cctype>

#include "digest.h"
#include "text/format.h"
#include "text/numbers.h"

namespace nyxus::engine {

namespace fs = std::filesystem;

namespace {

constexpr char kBytesSuffix[] = ".rom";
constexpr char kFactsSuffix[] = ".json";
constexpr size_t kDigits = 6;
constexpr size_t kMostFacts = 0x10000;
constexpr size_t kMostContents = 0x1000000;

constexpr char kOldFolder[] = "backups";
constexpr char kOldUnproven[] = "-unproven";
/// "-20260501T120000Za"
constexpr size_t kOldStampBytes = 18;

/// The number that a file's name begins with; 0 for none.
uint32_t sequence_of(const std::string& name)
{
    const std::string digits = name.substr(0, kDigits);
    const auto number = text::parse_number(digits, UINT32_MAX);
    const bool is_one = digits.find_first_not_of("0123456789") == std::string::npos &&
                        digits.size() == kDigits && number;
    return is_one ? static_cast<uint32_t>(*number) : 0;
}

std::optional<BackupFacts> read_facts(const KnownUnit& known, const std::string& name)
{
    const uint32_t sequence = sequence_of(name);
    const std::string stem = sequence_text(sequence);
    if (sequence == 0 || name != stem + kFactsSuffix || !known.folder.has(stem + kBytesSuffix))
        return std::nullopt;
    try {
        const auto bytes = known.folder.read(name, kMostFacts);
        auto facts = bytes ? parse_backup_facts({bytes->begin(), bytes->end()}) : std::nullopt;
        if (!facts || facts->unit != known.unit.id || facts->backup.sequence != sequence)
            return std::nullopt;
        facts->backup.name = known.unit.id + "/" + stem;
        facts->backup.file = known.folder.path() + "/" + stem + kBytesSuffix;
        return facts;
    } catch (const std::system_error&) {
        return std::nullopt; // others may write it, or it is a link
    }
}

/// The firmware that a ROM begins with, as recovering it writes it.
Bytes without_erased_rest(Bytes contents)
{
    size_t size = contents.size();
    while (size > 0 && contents[size - 1] == 0xFF)
        --size;
    return contents.subspan(0, size);
}

/// Of "A1-20260501T120000Za.rom-unproven".
std::optional<Backup> old_backup(const fs::path& folder, const std::string& name)
{
    const bool is_unproven = name.ends_with(kOldUnproven);
    const std::string file =
        is_unproven ? name.substr(0, name.size() - (sizeof kOldUnproven - 1)) : name;
    const size_t tail = kOldStampBytes + sizeof kBytesSuffix - 1;
    if (!file.ends_with(kBytesSuffix) || file.size() <= tail)
        return std::nullopt;
    const std::string stamp = file.substr(file.size() - tail + 1, kOldStampBytes - 2);
    if (stamp.size() != 16 || stamp[8] != 'T' || stamp[15] != 'Z')
        return std::nullopt;
    Backup backup;
    backup.name = name;
    backup.file = folder / name;
    backup.time = stamp.substr(0, 4) + "-" + stamp.substr(4, 2) + "-" + stamp.substr(6, 5) + ":" +
                  stamp.substr(11, 2) + ":" + stamp.substr(13);
    backup.serial = file.substr(0, file.size() - tail);
    backup.started = is_unproven ? Started::kNo : Started::kUnknown;
    backup.how = "an earlier version kept it, and noted no more than its name says";
    std::error_code none;
    backup.bytes = fs::file_size(backup.file, none);
    return backup;
}

} // namespace

std::string sequence_text(uint32_t sequence)
{
    return text::format("%06u", sequence);
}

std::vector<BackupFacts> backups_in(const KnownUnit& known)
{
    std::vector<BackupFacts> backups;
    for (const std::string& name : known.folder.names()) {
        if (auto facts = read_facts(known, name))
            backups.push_back(*std::move(facts));
    }
    return backups;
}

Backup add_backup(const KnownUnit& known, BackupFacts facts, Bytes contents)
{
    uint32_t latest = 0;
    for (const std::string& name : known.folder.names())
        latest = std::max(latest, sequence_of(name));
    Backup& backup = facts.backup;
    backup.sequence = latest + 1;
    backup.bytes = contents.size();
    backup.sha256 = sha256(contents);
    facts.unit = known.unit.id;
    facts.image = sha256(without_erased_rest(contents));
    const std::string stem = sequence_text(backup.sequence);
    backup.name = known.unit.id + "/" + stem;
    backup.file = known.folder.path() + "/" + stem + kBytesSuffix;
    known.folder.put(stem + kBytesSuffix, {contents.data(), contents.size()});
    known.folder.put(stem + kFactsSuffix, to_text(facts));
    return backup;
}

void remove_backup(const KnownUnit& known, uint32_t sequence)
{
    known.folder.remove(sequence_text(sequence) + kFactsSuffix); // what has none does not count
    known.folder.remove(sequence_text(sequence) + kBytesSuffix);
}

std::vector<Backup> old_backups(const fs::path& state)
{
    const auto top = files::Folder::find(state);
    const auto folder = top ? top->find_folder(kOldFolder) : std::nullopt;
    std::vector<Backup> backups;
    for (const std::string& name : folder ? folder->names() : std::vector<std::string>()) {
        if (auto backup = old_backup(folder->path(), name))
            backups.push_back(*std::move(backup));
    }
    return backups;
}

bool may_be_of(const Backup& old, const Sighting& sighting)
{
    std::string stem = sighting.serial.empty() ? "port-" + sighting.port : sighting.serial;
    std::ranges::replace_if(
        stem, [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '_'; }, '_');
    return old.serial == stem;
}

std::optional<std::vector<uint8_t>> contents_of(const fs::path& state, const Backup& backup)
{
    const fs::path folder = backup.file.parent_path();
    const bool is_old = backup.sequence == 0;
    auto parent = files::Folder::find(state);
    if (parent && !is_old)
        parent = parent->find_folder(folder.parent_path().filename());
    const auto own = parent ? parent->find_folder(folder.filename()) : std::nullopt;
    auto bytes = own ? own->read(backup.file.filename(), kMostContents) : std::nullopt;
    const bool is_whole =
        bytes && (is_old || (bytes->size() == backup.bytes && sha256(*bytes) == backup.sha256));
    return is_whole ? std::move(bytes) : std::nullopt;
}

} // namespace nyxus::engine
