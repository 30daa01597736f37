// SPDX-License-Identifier: Apache-2.0
#include "protocol.h"

#include "json/json.h"

#include <span>
#include <stdexcept>

namespace nyxus::engine {

using json::Json;

namespace {

// In the order of their values.
constexpr const char* kEventKinds[] = {
    "begins", "advances", "ends",   "abandoned", "outlook", "stop-postponed", "read-again",
    "kept",   "not-kept", "backup", "lost",      "retries", "installs",       "chosen"};
static_assert(std::size(kEventKinds) == static_cast<size_t>(Event::Kind::kChosen) + 1);

const char* to_text(Event::Kind kind)
{
    // cppcheck-suppress arrayIndexOutOfBounds ; it takes this for to_text(Reason)
    return kEventKinds[static_cast<size_t>(kind)];
}

/// The value with this text, of all up to the last one.
template <typename Enum>
Enum from_text(const std::string& text, Enum last)
{
    for (int i = 0; i <= static_cast<int>(last); ++i) {
        if (text == to_text(static_cast<Enum>(i)))
            return static_cast<Enum>(i);
    }
    throw std::out_of_range(text);
}

} // namespace

// What follows is found by the JSON library.

static void to_json(Json& json, const Status& status)
{
    json = {{"reason", to_text(status.reason())},
            {"message", status.message()},
            {"code", status.code()},
            {"where", status.where()}};
}

static void from_json(const Json& json, Status& status)
{
    const Reason reason = from_text(json.at("reason"), Reason::kDowngrade);
    if (reason != Reason::kNone)
        status = {reason, json.at("message"), json.at("code").get<int32_t>(), json.at("where")};
}

static void to_json(Json& json, Phase phase)
{
    json = to_text(phase);
}

static void from_json(const Json& json, Phase& phase)
{
    phase = from_text(json, Phase::kRestarting);
}

static void to_json(Json& json, RomContents rom)
{
    json = to_text(rom);
}

static void from_json(const Json& json, RomContents& rom)
{
    rom = from_text(json, RomContents::kUnknown);
}

static void to_json(Json& json, Keep keep)
{
    json = to_text(keep);
}

static void from_json(const Json& json, Keep& keep)
{
    keep = from_text(json, Keep::kWhole);
}

// The library's own macro is for its other type of object, which would be compiled once more.
#define FIELDS_OF(Type, ...)                                                       \
    static void to_json(Json& nlohmann_json_j, const Type& nlohmann_json_t)        \
    {                                                                              \
        NLOHMANN_JSON_EXPAND(NLOHMANN_JSON_PASTE(NLOHMANN_JSON_TO, __VA_ARGS__))   \
    }                                                                              \
    static void from_json(const Json& nlohmann_json_j, Type& nlohmann_json_t)      \
    {                                                                              \
        NLOHMANN_JSON_EXPAND(NLOHMANN_JSON_PASTE(NLOHMANN_JSON_FROM, __VA_ARGS__)) \
    }
FIELDS_OF(Discard, mfi, reserved)
FIELDS_OF(UpgradeOptions, always, backup, verify, wait_s, keep, discard)
FIELDS_OF(BatchOptions, upgrade, queue_depth, eeprom_bytes, restart, allow_downgrade, plug_wait_s,
          trace_level)
FIELDS_OF(ImagePart, chip, firmware_bytes, mfi_bytes, serial, reports)
FIELDS_OF(Order, port, options, images)
FIELDS_OF(Event, phase, done, total, seconds, rom, stop_waits, text, version, status)
FIELDS_OF(Report, status, rom, up_to_date, stopped, left_unlocked, backup, bytes, version_before,
          version_after, kept)

static std::string line_of(const Json& json)
{
    return json::printed(json) + "\n";
}

std::string to_line(const Order& order)
{
    return line_of({{"order", order}});
}

std::string to_line(const Event& event)
{
    Json json = event;
    json["event"] = to_text(event.kind);
    return line_of(json);
}

std::string to_line(const Report& report)
{
    return line_of({{"report", report}});
}

std::optional<Order> parse_order(const std::string& line)
{
    try {
        return json::parsed(line).at("order").get<Order>();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

bool is_stop(const std::string& line)
{
    return line + "\n" == kStopLine;
}

FromHelper parse_from_helper(const std::string& line)
{
    try {
        const Json json = json::parsed(line);
        if (json.contains("report"))
            return json.at("report").get<Report>();
        auto event = json.get<Event>();
        event.kind = from_text(json.at("event"), Event::Kind::kChosen);
        return event;
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace nyxus::engine
