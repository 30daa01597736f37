// SPDX-License-Identifier: Apache-2.0
#include "records.h"

#include <ctime>

#include "json/json.h"
#include "text/hex.h"
#include "text/printable.h"

namespace nyxus::engine {

using json::Json;

namespace {

// In the order of their values.
constexpr const char* kSteps[] = {"begins",  "erasing", "writing", "written",    "verified",
                                  "differs", "erased",  "started", "not-started"};
static_assert(std::size(kSteps) == static_cast<size_t>(JournalStep::kNotStarted) + 1);
constexpr const char* kStarted[] = {"no", "yes", "unknown"};
constexpr const char* kRecords[] = {"none",     "incomplete", "blank",        "written",
                                    "verified", "started",    "not-starting", "elsewhere"};

template <typename Enum>
Enum value_of(const Json& text, std::span<const char* const> names)
{
    const auto found = std::ranges::find(names, text.get<std::string>());
    if (found == names.end())
        throw std::out_of_range("no such value");
    return static_cast<Enum>(found - names.begin());
}

/// A serial number need not be UTF-8.
Json json_of_bytes(const std::string& bytes)
{
    return text::hex({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}

std::string bytes_of(const Json& json)
{
    const auto bytes = text::bytes_from_hex(json.get<std::string>());
    if (!bytes)
        throw std::out_of_range("no bytes");
    return {bytes->begin(), bytes->end()};
}

std::string dumped(const Json& json, int indent)
{
    return json::printed(json, indent);
}

/// Whatever is missing or of another type, nothing is made of the text.
template <typename Record, typename Fill>
std::optional<Record> parse(const std::string& text, const Fill& fill)
{
    try {
        Record record;
        fill(json::parsed(text), record);
        return record;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace

const char* to_text(Started started)
{
    return kStarted[static_cast<size_t>(started)];
}

const char* to_text(RomRecord record)
{
    return kRecords[static_cast<size_t>(record)];
}

std::string to_text(const Unit& unit)
{
    Json serials = Json::array();
    for (const std::string& serial : unit.serials)
        serials.push_back(json_of_bytes(serial));
    return dumped({{"chip", unit.chip},
                   {"serial", text::printable(unit.serial())},
                   {"serials_hex", serials},
                   {"port", unit.port},
                   {"goes_by_port", unit.goes_by_port},
                   {"first_seen", unit.first_seen},
                   {"last_seen", unit.last_seen}},
                  2) +
           "\n";
}

std::optional<Unit> parse_unit(const std::string& text)
{
    return parse<Unit>(text, [](const Json& json, Unit& unit) {
        unit.chip = json.at("chip");
        for (const Json& serial : json.at("serials_hex"))
            unit.serials.push_back(bytes_of(serial));
        unit.port = json.at("port");
        unit.goes_by_port = json.at("goes_by_port");
        unit.first_seen = json.at("first_seen");
        unit.last_seen = json.at("last_seen");
        if (unit.serials.empty())
            throw std::out_of_range("no serial number");
    });
}

std::string to_text(const JournalLine& line)
{
    return dumped({{"time", line.time},
                   {"operation", line.operation},
                   {"step", kSteps[static_cast<size_t>(line.step)]},
                   {"running", line.running},
                   {"image_sha256", line.image},
                   {"file_sha256", line.file},
                   {"serial_hex", json_of_bytes(line.serial)},
                   {"backup", line.backup},
                   {"kept", line.kept}},
                  -1);
}

std::optional<JournalLine> parse_journal_line(const std::string& text)
{
    return parse<JournalLine>(text, [](const Json& json, JournalLine& line) {
        line.step = value_of<JournalStep>(json.at("step"), kSteps);
        line.time = json.at("time");
        line.operation = json.at("operation");
        line.running = json.at("running");
        line.image = json.at("image_sha256");
        line.serial = bytes_of(json.at("serial_hex"));
        line.backup = json.at("backup");
        line.file = json.value("file_sha256", ""); // earlier versions have not noted these
        line.kept = json.value("kept", line.kept);
    });
}

std::string to_text(const BackupFacts& facts)
{
    const Backup& backup = facts.backup;
    return dumped({{"sequence", backup.sequence},
                   {"time", backup.time},
                   {"unit", facts.unit},
                   {"chip", backup.chip},
                   {"serial", backup.serial},
                   {"port", backup.port},
                   {"running", backup.running},
                   {"bytes", backup.bytes},
                   {"sha256", backup.sha256},
                   {"image_sha256", facts.image},
                   {"started", to_text(backup.started)},
                   {"how_that_is_known", backup.how}},
                  2) +
           "\n";
}

std::optional<BackupFacts> parse_backup_facts(const std::string& text)
{
    return parse<BackupFacts>(text, [](const Json& json, BackupFacts& facts) {
        Backup& backup = facts.backup;
        backup.sequence = json.at("sequence");
        backup.time = json.at("time");
        facts.unit = json.at("unit");
        backup.chip = json.at("chip");
        backup.serial = json.at("serial");
        backup.port = json.at("port");
        backup.running = json.at("running");
        backup.bytes = json.at("bytes");
        backup.sha256 = json.at("sha256");
        facts.image = json.at("image_sha256");
        backup.started = value_of<Started>(json.at("started"), kStarted);
        backup.how = json.at("how_that_is_known");
    });
}

std::string utc_now()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

} // namespace nyxus::engine
