// SPDX-License-Identifier: Apache-2.0
#include "json.h"

#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>

namespace test {

namespace {

Json converted(const nlohmann::json& json)
{
    if (json.is_boolean())
        return json.get<bool>();
    if (json.is_number())
        return json.get<double>();
    if (json.is_string())
        return json.get<std::string>();
    if (json.is_array()) {
        Json::List list;
        for (const auto& item : json)
            list.push_back(converted(item));
        return list;
    }
    if (!json.is_object())
        return nullptr;
    Json::Members members;
    for (const auto& [name, value] : json.items())
        members[name] = converted(value);
    return members;
}

/// "[1, 2]"
template <typename Items, typename Print>
void print_all(std::ostream& out, const char* brackets, const Items& items, Print print)
{
    out << brackets[0];
    const char* separator = "";
    for (const auto& item : items) {
        out << separator;
        print(item);
        separator = ", ";
    }
    out << brackets[1];
}

} // namespace

Json Json::parse(const std::string& text)
{
    return converted(nlohmann::json::parse(text));
}

const Json& Json::operator[](const std::string& name) const
{
    static const Json kNull;
    const auto& members = std::get<Members>(content_);
    const auto found = members.find(name);
    return found == members.end() ? kNull : found->second;
}

size_t Json::size() const
{
    const auto* members = std::get_if<Members>(&content_);
    return members != nullptr ? members->size() : list().size();
}

std::ostream& operator<<(std::ostream& out, const Json& json)
{
    if (const auto* truth = std::get_if<bool>(&json.content_))
        return out << (*truth ? "true" : "false");
    if (const auto* number = std::get_if<double>(&json.content_))
        return out << *number;
    if (const auto* text = std::get_if<std::string>(&json.content_))
        return out << std::quoted(*text);
    if (const auto* list = std::get_if<Json::List>(&json.content_)) {
        print_all(out, "[]", *list, [&](const Json& item) { out << item; });
    } else if (const auto* members = std::get_if<Json::Members>(&json.content_)) {
        print_all(out, "{}", *members, [&](const auto& member) {
            out << std::quoted(member.first) << ": " << member.second;
        });
    } else {
        out << "null";
    }
    return out;
}

std::vector<Json> events(const std::string& output)
{
    std::vector<Json> list;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);)
        list.push_back(Json::parse(line));
    return list;
}

} // namespace test
