// SPDX-License-Identifier: Apache-2.0
#include "protocol.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace nyxus::engine {

namespace {

using Json = nlohmann::json;

constexpr const char* kKinds[] = {"begins",  "advances",       "ends",          "abandoned",
                                  "outlook", "stop-postponed", "reserved-area", "backup",
                                  "lost",    "retries"};
constexpr const char* kReasons[] = {"none",
                                    "other",
                                    "stopped",
                                    "camera-gone",
                                    "not-back",
                                    "timed-out",
                                    "no-permission",
                                    "busy",
                                    "protected",
                                    "mismatch",
                                    "wrong-image",
                                    "not-supported",
                                    "unknown-rom",
                                    "file",
                                    "backup-not-kept",
                                    "no-backup",
                                    "nothing-to-recover",
                                    "not-started"};
static_assert(std::size(kKinds) == static_cast<size_t>(Event::Kind::kRetries) + 1);
static_assert(std::size(kReasons) == static_cast<size_t>(Reason::kNotStarted) + 1);

/// The value with this text, out of all that have one.
template <typename Enum, typename Text>
Enum from_text(const std::string& text, size_t count, Text text_of)
{
    for (size_t i = 0; i < count; ++i) {
        if (text == text_of(i))
            return static_cast<Enum>(i);
    }
    throw std::out_of_range(text);
}

Phase phase_from(const std::string& text)
{
    return from_text<Phase>(text, static_cast<size_t>(Phase::kRestarting) + 1,
                            [](size_t i) { return to_text(static_cast<Phase>(i)); });
}

RomContents rom_from(const std::string& text)
{
    return from_text<RomContents>(text, static_cast<size_t>(RomContents::kErased) + 1,
                                  [](size_t i) { return to_text(static_cast<RomContents>(i)); });
}

Json json_of(const Status& status)
{
    return {{"reason", kReasons[static_cast<size_t>(status.reason())]},
            {"message", status.message()},
            {"code", status.code()},
            {"where", status.where()}};
}

Status status_from(const Json& json)
{
    const auto reason = from_text<Reason>(json.at("reason"), std::size(kReasons),
                                          [](size_t i) { return kReasons[i]; });
    if (reason == Reason::kNone)
        return {};
    return {reason, json.at("message"), json.at("code").get<int32_t>(), json.at("where")};
}

Event event_from(const Json& json)
{
    return {.kind = from_text<Event::Kind>(json.at("event"), std::size(kKinds),
                                           [](size_t i) { return kKinds[i]; }),
            .phase = phase_from(json.at("phase")),
            .done = json.at("done"),
            .total = json.at("total"),
            .seconds = json.at("seconds"),
            .rom = rom_from(json.at("rom")),
            .stop_waits = json.at("stop_waits"),
            .certain = json.at("certain"),
            .text = json.at("text"),
            .status = status_from(json.at("status"))};
}

Report report_from(const Json& json)
{
    return {.status = status_from(json.at("status")),
            .rom = rom_from(json.at("rom")),
            .up_to_date = json.at("up_to_date"),
            .stopped = json.at("stopped"),
            .left_unlocked = json.at("left_unlocked"),
            .backup = json.at("backup").get<std::string>(),
            .bytes = json.at("bytes")};
}

Order order_from(const Json& json)
{
    return {.port = json.at("port"),
            .options = {.upgrade = {.always = json.at("always"),
                                    .backup = json.at("backup"),
                                    .verify = json.at("verify"),
                                    .wait_s = json.at("wait_s")},
                        .eeprom_bytes = json.at("eeprom_bytes"),
                        .restart = json.at("restart"),
                        .plug_wait_s = json.at("plug_wait_s"),
                        .trace_level = json.at("trace_level")},
            .firmware_bytes = json.at("firmware_bytes"),
            .mfi_bytes = json.at("mfi_bytes"),
            .serial = json.at("serial")};
}

/// A name that is no UTF-8 becomes that.
std::string line_of(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace

std::string to_line(const Order& order)
{
    const UpgradeOptions& upgrade = order.options.upgrade;
    return line_of({{"order",
                     {{"port", order.port},
                      {"always", upgrade.always},
                      {"backup", upgrade.backup},
                      {"verify", upgrade.verify},
                      {"wait_s", upgrade.wait_s},
                      {"eeprom_bytes", order.options.eeprom_bytes},
                      {"restart", order.options.restart},
                      {"plug_wait_s", order.options.plug_wait_s},
                      {"trace_level", order.options.trace_level},
                      {"firmware_bytes", order.firmware_bytes},
                      {"mfi_bytes", order.mfi_bytes},
                      {"serial", order.serial}}}});
}

std::string to_line(const Event& event)
{
    return line_of({{"event", kKinds[static_cast<size_t>(event.kind)]},
                    {"phase", to_text(event.phase)},
                    {"done", event.done},
                    {"total", event.total},
                    {"seconds", event.seconds},
                    {"rom", to_text(event.rom)},
                    {"stop_waits", event.stop_waits},
                    {"certain", event.certain},
                    {"text", event.text},
                    {"status", json_of(event.status)}});
}

std::string to_line(const Report& report)
{
    return line_of({{"report",
                     {{"status", json_of(report.status)},
                      {"rom", to_text(report.rom)},
                      {"up_to_date", report.up_to_date},
                      {"stopped", report.stopped},
                      {"left_unlocked", report.left_unlocked},
                      {"backup", report.backup.string()},
                      {"bytes", report.bytes}}}});
}

std::optional<Order> parse_order(const std::string& line)
{
    try {
        return order_from(Json::parse(line).at("order"));
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
        const Json json = Json::parse(line);
        if (json.contains("report"))
            return report_from(json.at("report"));
        return event_from(json);
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace nyxus::engine
