// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "description/kinds.h"

#include <toml++/toml.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// What is wrong with one file, collected so that its author sees all of it at once.
class Mistakes {
public:
    explicit Mistakes(std::string file) : file_(std::move(file)) {}

    /// In front of all that is added from now on, such as "fault 2: ".
    void set_subject(std::string subject) { subject_ = std::move(subject); }
    void add(const toml::source_region& where, const std::string& what);
    /// About the file as a whole.
    void add(const std::string& what);
    /// Throws DescriptionError with all that was added, from top to bottom.
    void throw_if_any() const;

private:
    struct Mistake {
        toml::source_position where;
        std::string text;
    };

    std::string file_;
    std::string subject_;
    std::vector<Mistake> found_;
};

/// Letters, digits, '-', '_' and '.'.
bool is_name_character(char c);

/// Throws DescriptionError for what is no TOML.
toml::table parse_toml(std::string_view text, const std::string& file);

/// The key as it stands in the table, for its place in the file; nullptr when it is not there.
const toml::key* find_key(const toml::table& table, std::string_view key);
/// Reports keys that are none of `known`.
void check_keys(const toml::table& table, std::span<const std::string_view> known,
                Mistakes& mistakes);
/// nullopt, and a mistake, when the value is not what the kind asks for.
std::optional<Value> read_value(const toml::key& key, const toml::node& node, const Kind& kind,
                                Mistakes& mistakes);
/// Says that the key must be what its kind says, and what it is instead.
void report_kind(const toml::key& key, const toml::node& node, const Kind& kind,
                 Mistakes& mistakes);
/// The tables of a key, of which there may be at most so many; none, and a mistake, for anything
/// else.
std::vector<const toml::table*> tables_of(const toml::key& key, const toml::node& node,
                                          const Tables& kind, Mistakes& mistakes);
/// "'[flash]' needs the key 'id', ..."
void report_missing(const toml::table& table, std::string_view section, std::string_view key,
                    const Kind& kind, std::string_view meaning, Mistakes& mistakes);

/// Fills the target from a table, key by key in the order of the fields. `open_section` is asked
/// for those keys that hold parts or tables.
template <typename Target, typename OpenSection>
void read_fields(const toml::table& table, std::string_view section,
                 std::span<const Field<Target>> fields, Target& target, Mistakes& mistakes,
                 OpenSection&& open_section)
{
    std::vector<std::string_view> known;
    for (const Field<Target>& field : fields)
        known.push_back(field.key);
    check_keys(table, known, mistakes);

    for (const Field<Target>& field : fields) {
        const toml::key* key = find_key(table, field.key);
        if (field.set == nullptr) {
            open_section(field, key);
        } else if (key != nullptr) {
            if (const auto value = read_value(*key, *table.get(field.key), field.kind, mistakes))
                field.set(target, *value);
        } else if (std::holds_alternative<Required>(field.fallback)) {
            report_missing(table, section, field.key, field.kind, field.meaning, mistakes);
        } else if (const auto* value = std::get_if<Value>(&field.fallback)) {
            field.set(target, *value);
        } else if (const auto* computed = std::get_if<Computed<Target>>(&field.fallback)) {
            field.set(target, computed->value(target));
        }
    }
}

} // namespace sim
