// SPDX-License-Identifier: Apache-2.0
#include "terminal/json_text.h"

#include "json/json.h"

namespace tool {

namespace {

using json::Json;

Json to_json(const Value& value)
{
    const auto convert = [](const auto& content) -> Json {
        using Content = std::decay_t<decltype(content)>;
        if constexpr (std::is_same_v<Content, Value::List>) {
            Json list = Json::array();
            for (const Value& item : content)
                list.push_back(to_json(item));
            return list;
        } else if constexpr (std::is_same_v<Content, Members>) {
            Json object = Json::object();
            for (const Member& member : content)
                object[member.name] = to_json(member.value);
            return object;
        } else {
            return content;
        }
    };
    return std::visit(convert, value.content());
}

std::string printed(const Value& value, int indent)
{
    return json::printed(to_json(value), indent);
}

} // namespace

Members json_of(const CameraEntry& entry)
{
    return {{"bus", entry.bus},
            {"address", entry.address},
            {"port_path", entry.port_path},
            {"serial", entry.serial},
            {"product", entry.product}};
}

Members json_of_place(const CameraEntry& entry)
{
    return {{"port", entry.port_path}, {"serial", entry.serial}, {"product", entry.product}};
}

Members json_of(const nyxus::engine::RomHistory& history)
{
    if (history.since.empty())
        return {{"state", Value()}};
    return {{"state", to_text(history.rom)},
            {"as_of", history.since},
            {"operation", history.operation},
            {"backup", history.backup},
            {"certain", history.certain}};
}

Members json_of(const Failure& failure)
{
    return {{"exit_code", failure.code()}, {"message", failure.text()}};
}

std::string json_text(const Value& value)
{
    return printed(value, 2);
}

std::string json_line(const Value& value)
{
    return printed(value, -1);
}

std::string json_error(const Failure& failure)
{
    return json_line(Members{{"error", json_of(failure)}});
}

} // namespace tool
