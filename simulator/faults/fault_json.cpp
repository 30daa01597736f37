// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_json.h"

#include "json/json.h"
#include "text/numbers.h"

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

} // namespace

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

} // namespace sim
