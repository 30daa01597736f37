// SPDX-License-Identifier: Apache-2.0
#include "manifest_text.h"

#include <toml++/toml.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <span>
#include <sstream>

#include "text/hex.h"
#include "text/nearest.h"
#include "text/numbers.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace {

constexpr size_t kMostEntries = 64;
constexpr size_t kLongestText = 200;
/// A table in a table in a table: each level costs the parser stack.
constexpr std::ptrdiff_t kMostDots = 2000;

/// Why a text cannot be taken.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string shown(std::string_view text)
{
    constexpr size_t kLongest = 60;
    return text::in_quotes(text.substr(0, kLongest)) + (text.size() > kLongest ? "..." : "");
}

toml::table parse_toml(std::string_view text)
{
    if (text.size() > kMostTomlBytes || std::ranges::count(text, '.') > kMostDots)
        throw Refusal("it is too large, or has too many dots");
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        throw Refusal("line " + std::to_string(error.source().begin.line) +
                      " is no TOML: " + text::printable(error.description()));
    }
}

/// Makes a record of a text that `read` understands.
template <typename Record, typename Read>
Result<Record> read_toml(std::string_view text, const std::string& name, Reason reason,
                         const Read& read)
{
    try {
        Record record;
        read(parse_toml(text), record);
        return record;
    } catch (const std::runtime_error& refusal) {
        return Status(reason, name + ": " + refusal.what());
    }
}

void check_keys(const toml::table& table, std::span<const std::string_view> known)
{
    for (const auto& [key, node] : table) {
        if (std::ranges::find(known, key.str()) == known.end()) {
            throw Refusal("there is no key " + shown(key.str()) + " here" +
                          text::did_you_mean(key.str(), known));
        }
    }
}

/// Why a text is refused; "" when it is not.
using Complaint = std::string (*)(const std::string&);

std::string any_text(const std::string& /*text*/)
{
    return {};
}

std::string complain_of_version(const std::string& text)
{
    return parse_version(text) ? "" : "numbers with dots between them, such as \"2.1.0\"";
}

std::string complain_of_digest(const std::string& text)
{
    constexpr size_t kSha256Digits = 64;
    const bool fits = text.size() == kSha256Digits && text::bytes_from_hex(text);
    return fits ? "" : "64 hexadecimal digits";
}

std::string complain_of_report(const std::string& text)
{
    const bool fits = text.starts_with("0x") && text::parse_number(text, 0xFFFF);
    return fits ? "" : "a version as a camera reports it, such as \"0x0205\"";
}

std::string complain_of_path(const std::string& text)
{
    const std::filesystem::path path = text;
    const bool leaves = path.is_absolute() || std::ranges::find(path, "..") != path.end();
    return leaves ? "a path inside the manifest's folder" : "";
}

/// A chip that is not known here cannot be opened either.
std::string complain_of_chip(const std::string& text)
{
    const std::span rows(backend_list, static_cast<size_t>(backend_list_count));
    const bool is_known = std::ranges::any_of(rows, [&](const NyBackend& row) {
        return row.family != IC_FAMILY_NONE &&
               (text == row.name || (text.size() >= 2 && text.size() <= 3 &&
                                     std::string_view(row.signature).starts_with(text)));
    });
    return is_known ? "" : "the name of a chip, or its signature, such as \"NY6410\" or \"RO\"";
}

/// A text under a key.
template <typename Record>
struct TextField {
    std::string_view key;
    std::string Record::*member;
    Complaint complaint;
    bool is_required;
};

// clang-format off
constexpr TextField<Manifest> kManifestFields[] = {
//   key           member               complaint            required
    {"product",    &Manifest::product,  any_text,            true},
    {"version",    &Manifest::version,  complain_of_version, true},
};
constexpr TextField<ManifestEntry> kEntryFields[] = {
    {"chip",       &ManifestEntry::chip,       complain_of_chip,   true},
    {"image",      &ManifestEntry::image,      complain_of_path,   true},
    {"sha256",     &ManifestEntry::sha256,     complain_of_digest, true},
    {"reports",    &ManifestEntry::reports,    complain_of_report, false},
    {"mfi",        &ManifestEntry::mfi,        complain_of_path,   false},
    {"mfi_sha256", &ManifestEntry::mfi_sha256, complain_of_digest, false},
};
// clang-format on

template <typename Record>
void read_field(const toml::table& table, const TextField<Record>& field, Record& record)
{
    const std::string key = text::in_quotes(field.key);
    const toml::node* const node = table.get(field.key);
    if (node == nullptr && field.is_required)
        throw Refusal(key + " is missing");
    if (node == nullptr)
        return;
    const auto* const value = node->as_string();
    if (value == nullptr || value->get().empty() || value->get().size() > kLongestText ||
        text::printable(value->get()) != value->get())
        throw Refusal(key + " must be a text of 1 to 200 printable characters");
    if (const std::string wanted = field.complaint(value->get()); !wanted.empty())
        throw Refusal(key + " must be " + wanted + ", not " + shown(value->get()));
    record.*field.member = value->get();
}

template <typename Record>
void read_fields(const toml::table& table, std::span<const TextField<Record>> fields,
                 Record& record)
{
    for (const TextField<Record>& field : fields)
        read_field(table, field, record);
}

ManifestEntry read_entry(const toml::node& node)
{
    const toml::table* const table = node.as_table();
    if (table == nullptr)
        throw Refusal("'firmware' must be a list of tables");
    constexpr auto kKeys = [] {
        std::array<std::string_view, std::size(kEntryFields)> keys;
        std::ranges::transform(kEntryFields, keys.begin(), &TextField<ManifestEntry>::key);
        return keys;
    }();
    check_keys(*table, kKeys);
    ManifestEntry entry;
    read_fields<ManifestEntry>(*table, kEntryFields, entry);
    if (entry.mfi.empty() != entry.mfi_sha256.empty())
        throw Refusal("'mfi' and 'mfi_sha256' belong together");
    return entry;
}

void read_manifest(const toml::table& table, Manifest& manifest)
{
    constexpr std::string_view kKeys[] = {"product", "version", "firmware"};
    check_keys(table, kKeys);
    read_fields<Manifest>(table, kManifestFields, manifest);
    const toml::node* const node = table.get("firmware");
    const toml::array* const entries = node != nullptr ? node->as_array() : nullptr;
    if (entries == nullptr || entries->empty() || entries->size() > kMostEntries)
        throw Refusal("it must have 1 to 64 tables [[firmware]]");
    std::set<std::string> chips;
    for (const toml::node& entry : *entries) {
        manifest.firmware.push_back(read_entry(entry));
        const std::string& chip = manifest.firmware.back().chip;
        if (!chips.insert(chip).second)
            throw Refusal("it names two images for the chip " + shown(chip));
    }
}

bool read_switch(const toml::table& table, std::string_view key, bool otherwise)
{
    const toml::node* const node = table.get(key);
    if (node != nullptr && !node->is_boolean())
        throw Refusal(text::in_quotes(key) + " must be true or false");
    return node != nullptr ? node->as_boolean()->get() : otherwise;
}

template <typename Record>
toml::table table_of(const Record& record, std::span<const TextField<Record>> fields)
{
    toml::table table;
    for (const TextField<Record>& field : fields) {
        if (!(record.*field.member).empty())
            table.insert(field.key, record.*field.member);
    }
    return table;
}

} // namespace

std::optional<std::vector<uint32_t>> parse_version(const std::string& text)
{
    constexpr size_t kMostNumbers = 8;
    std::vector<uint32_t> numbers;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data();; ++at) {
        const auto read = std::from_chars(at, end, numbers.emplace_back());
        if (read.ec != std::errc() || numbers.size() > kMostNumbers)
            return std::nullopt;
        at = read.ptr;
        if (at == end)
            break;
        if (*at != '.')
            return std::nullopt;
    }
    while (!numbers.empty() && numbers.back() == 0) // 1.0 is 1
        numbers.pop_back();
    return numbers;
}

Result<Manifest> parse_manifest(std::string_view text, const std::string& name)
{
    return read_toml<Manifest>(text, name, Reason::kWrongImage, read_manifest);
}

Result<Policy> parse_policy(std::string_view text, const std::string& name)
{
    return read_toml<Policy>(
        text, name, Reason::kUntrusted, [](const toml::table& table, Policy& policy) {
            constexpr std::string_view kKeys[] = {"allow_unsigned", "user_keys"};
            check_keys(table, kKeys);
            policy.allow_unsigned = read_switch(table, kKeys[0], false);
            policy.user_keys = read_switch(table, kKeys[1], true);
        });
}

std::string to_text(const Manifest& manifest)
{
    toml::table table = table_of<Manifest>(manifest, kManifestFields);
    toml::array entries;
    for (const ManifestEntry& entry : manifest.firmware)
        entries.push_back(table_of<ManifestEntry>(entry, kEntryFields));
    table.insert("firmware", std::move(entries));
    std::ostringstream text;
    text << table << '\n';
    return text.str();
}

} // namespace nyxus::engine
