// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_file.h"

#include "description/reader.h"
#include "faults/fault_fields.h"
#include "faults/fault_tables.h"
#include "files/read.h"
#include "json/json.h"
#include "text/numbers.h"
#include "text/printable.h"

#include <algorithm>
#include <cstdio>
#include <system_error>

namespace sim {

namespace {

using json::Json;

/// JSON has no other way to write 0x4000 than as a text.
std::optional<uint64_t> number_in(const std::string& key, const Json& value)
{
    const bool may_be_one = value.is_string() && key != "camera";
    const std::string text = may_be_one ? value.get<std::string>() : "";
    return text.starts_with("0x") ? text::parse_number(text) : std::nullopt;
}

toml::table table_of(const Json& object);
toml::array array_of(const std::string& key, const Json& list);

template <typename Put>
void convert(const std::string& key, const Json& value, const Put& put)
{
    const std::optional<uint64_t> number = number_in(key, value);
    if (value.is_object()) {
        put(table_of(value));
    } else if (value.is_array()) {
        put(array_of(key, value));
    } else if (number && *number <= INT64_MAX) {
        put(static_cast<int64_t>(*number));
    } else if (value.is_number_integer() && value <= INT64_MAX) {
        put(value.get<int64_t>());
    } else if (value.is_number()) {
        put(value.get<double>());
    } else if (value.is_boolean()) {
        put(value.get<bool>());
    } else {
        put(value.is_string() ? value.get<std::string>() : std::string("null"));
    }
}

toml::table table_of(const Json& object)
{
    toml::table table;
    for (const auto& item : object.items()) {
        convert(item.key(), item.value(),
                [&](auto made) { table.insert_or_assign(item.key(), std::move(made)); });
    }
    return table;
}

toml::array array_of(const std::string& key, const Json& list)
{
    toml::array array;
    for (const Json& item : list) {
        if (!item.is_null()) // the end of an open range
            convert(key, item, [&](auto made) { array.push_back(std::move(made)); });
    }
    return array;
}

bool is_json(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\r\n";
    const auto from = [&](size_t place) {
        const size_t next = text.find_first_not_of(kBlanks, place);
        return next == std::string_view::npos ? text.size() : next;
    };
    const size_t first = from(0);
    const char begin = first < text.size() ? text[first] : '\0';
    if (begin != '[')
        return begin == '{' || begin == '/';
    const size_t second = from(first + 1);
    return second == text.size() ||
           std::string_view("{]/").find(text[second]) != std::string_view::npos;
}

toml::table table_from_json(std::string_view text, Mistakes& mistakes)
{
    toml::table table;
    const Json list = json::parsed(text, json::Comments::kAllowed);
    if (list.is_array()) {
        table.insert("fault", array_of("", list));
    } else {
        mistakes.add(list.is_discarded()
                         ? "this is no JSON; a fault file is TOML, with tables [[fault]]"
                         : "a fault file in JSON is a list: [ {...}, {...} ]");
    }
    return table;
}

constexpr size_t kLargestFaultFile = 1 << 20;

bool is_number(const std::string& text)
{
    return text::parse_number(text) && text::without_leading_zeros(text) == text;
}

std::string quoted(const std::string& text)
{
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\')
            quoted += '\\';
        quoted += character;
    }
    return quoted + '"';
}

std::string typed_value(const std::string& text)
{
    const size_t dash = text.find('-');
    const std::string from = text.substr(0, dash);
    const std::string to = dash == std::string::npos ? "" : text.substr(dash + 1);
    if (dash != std::string::npos && is_number(from) && (to.empty() || is_number(to)))
        return "[" + from + (to.empty() ? "]" : ", " + to + "]");
    const bool is_fraction =
        text.starts_with("0.") && text.find_first_not_of("0123456789", 2) == std::string::npos;
    const bool is_toml = is_number(text) || is_fraction || text == "true" || text == "false" ||
                         text.starts_with('[') || text.starts_with('"');
    return is_toml ? text : quoted(text);
}

} // namespace

FaultPlan parse_faults(std::string_view text, const std::string& name)
{
    if (text.size() > kLargestFaultFile)
        throw DescriptionError(name + ": a fault file has at most 1 MiB");
    Mistakes mistakes(name);
    const toml::table table =
        is_json(text) ? table_from_json(text, mistakes) : parse_toml(text, name);
    mistakes.throw_if_any();
    constexpr std::string_view kKey = "fault";
    check_keys(table, {&kKey, 1}, mistakes);
    FaultPlan plan;
    const toml::array* list = table.get_as<toml::array>(kKey);
    if (list != nullptr && list->empty()) // said in so many words: nothing goes wrong
        return plan;
    if (const toml::key* key = find_key(table, kKey)) {
        plan = read_fault_tables(*key, *table.get(kKey), std::nullopt, mistakes);
    } else if (table.empty()) {
        mistakes.add("there is no table [[fault]]");
    }
    mistakes.throw_if_any();
    return plan;
}

std::string fault_text(const std::vector<std::string>& words)
{
    std::string settings;
    std::string when;
    for (const std::string& word : words) {
        const size_t equals = word.find('=');
        if (word.find_first_of("[{\n") < equals) // TOML
            return word;
        const std::string key = word.substr(0, equals);
        if (equals == std::string::npos) {
            settings += ", do = " + quoted(word);
            continue;
        }
        const bool is_trigger = std::ranges::any_of(
            trigger_fields(), [&](const Field<Trigger>& field) { return field.key == key; });
        (is_trigger ? when : settings) += ", " + key + " = " + typed_value(word.substr(equals + 1));
    }
    const std::string triggers = when.empty() ? "" : when.substr(2);
    return "fault = [{when = {" + triggers + "}" + settings + "}]";
}

std::string read_fault_text(const std::string& path)
{
    try {
        std::string text = files::read_text(path, kLargestFaultFile);
        if (is_json(text)) {
            std::fprintf(stderr,
                         "nyxus-sim: %s is JSON, which is still read; fault files are TOML "
                         "now: see nyxus-faults(5)\n",
                         text::printable(path).c_str());
        }
        return text;
    } catch (const std::system_error& failure) {
        throw DescriptionError("cannot read the fault file " + text::in_quotes(path) + ": " +
                               failure.code().message());
    }
}

} // namespace sim
