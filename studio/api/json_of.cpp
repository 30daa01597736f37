// SPDX-License-Identifier: Apache-2.0
#include "api/json_of.h"

#include "text/format.h"
#include "text/printable.h"

namespace studio {

using nyxus::Reason;
using text::printable;

Json json_of(const nyxus::CameraInfo& info)
{
    return {{"bus", info.bus},
            {"address", info.address},
            {"port_path", info.port_path},
            {"serial", printable(info.serial)},
            {"product", printable(info.product)}};
}

Json json_of(const engine::RomHistory& history)
{
    if (history.since.empty())
        return {{"state", nullptr}};
    return {{"state", to_text(history.rom)},
            {"as_of", history.since},
            {"operation", history.operation},
            {"backup", history.backup},
            {"certain", history.certain}};
}

Json json_of(const engine::Camera& camera)
{
    const char* kind = camera.rom_state() == nyxus::RomState::kUnknown ? "unknown"
                       : camera.has_spi_flash()                        ? "spi"
                                                                       : "eeprom";
    Json rom = json_of(engine::Backups().history(camera));
    rom["kind"] = kind;
    rom["size_bytes"] = camera.rom_size();
    rom["holds_firmware"] = camera.rom_state() == nyxus::RomState::kFirmware;
    if (const auto flash = camera.flash()) {
        rom["id"] = text::format("%02X %02X %02X", flash->id[0], flash->id[1], flash->id[2]);
        if (!flash->name.empty()) {
            rom["part"] = printable(flash->name);
            rom["part_size_bytes"] = flash->part_bytes;
        }
    }
    const auto xu = camera.xu_version();
    Json object = json_of(camera.info());
    object["chip"] = printable(camera.chip());
    object["family"] = camera.family();
    object["internal_firmware"] = printable(camera.internal_version());
    object["runs"] = camera.runs_external_firmware() ? "external firmware" : "mask ROM";
    object["external_firmware"] = camera.firmware_version();
    object["sensor_application"] = camera.sensor_application();
    object["set_file"] =
        camera.device()->oFwStatus.xSetfileExist != 0 ? printable(camera.setfile_version()) : "";
    object["xu_version"] = xu ? Json(*xu) : Json();
    object["memory_extension"] = camera.has_memory_extension();
    object["rom"] = std::move(rom);
    return object;
}

Json json_of(const NyStreamFormat& format)
{
    constexpr double kSecond_100ns = 1e7;
    Json rates = Json::array();
    for (uint32_t at = 0; at < format.interval_count && at < NYXUS_MOST_INTERVALS; ++at) {
        if (format.intervals[at] != 0)
            rates.push_back(kSecond_100ns / format.intervals[at]);
    }
    Json object = {{"format", printable(nyxus::fourcc_text(format.fourcc))},
                   {"width", format.width},
                   {"height", format.height},
                   {"rates", std::move(rates)}};
    if (format.interval_count == 0 && format.interval_min != 0 && format.interval_max != 0) {
        object["rate_minimum"] = kSecond_100ns / format.interval_max;
        object["rate_maximum"] = kSecond_100ns / format.interval_min;
    }
    return object;
}

Json json_of(const NyControl& control)
{
    return {{"name", control.name},       {"value", control.value},
            {"minimum", control.minimum}, {"maximum", control.maximum},
            {"step", control.step},       {"default", control.default_value}};
}

Json json_of(const engine::Backup& backup)
{
    return {{"name", printable(backup.name)},       {"sequence", backup.sequence},
            {"time", printable(backup.time)},       {"chip", printable(backup.chip)},
            {"serial", printable(backup.serial)},   {"port", printable(backup.port)},
            {"running", printable(backup.running)}, {"bytes", backup.bytes},
            {"sha256", printable(backup.sha256)},   {"started", to_text(backup.started)},
            {"how", printable(backup.how)}};
}

Json json_of(const engine::ImageFacts& facts)
{
    Json object = {{"contents", to_text(facts.contents)},
                   {"bytes", facts.bytes},
                   {"sha256", facts.sha256},
                   {"chips", facts.chips},
                   {"firmware_end", facts.firmware_end},
                   {"kind", nullptr},
                   {"version", nullptr},
                   {"problem", nullptr},
                   {"mfi", nullptr}};
    if (facts.kind) {
        object["kind"] = printable(facts.kind->name);
        object["version"] = printable(facts.kind->version);
        if (!facts.kind->problem.empty())
            object["problem"] = printable(facts.kind->problem);
    }
    if (facts.mfi) {
        object["mfi"] = {{"bytes", facts.mfi->bytes}, {"serial", printable(facts.mfi->serial)}};
    }
    return object;
}

Json json_of(const engine::Part& part)
{
    return {
        {"name", part.name}, {"address", part.address}, {"bytes", part.size}, {"why", part.why}};
}

Json json_of(const engine::Step& step)
{
    return {{"action", to_text(step.action)}, {"address", step.address}, {"bytes", step.size}};
}

Json json_of(const engine::Event& event)
{
    using Kind = engine::Event::Kind;
    constexpr const char* kKinds[] = {
        "begins", "advances", "ends",   "abandoned", "outlook", "stop-postponed", "read-again",
        "kept",   "not-kept", "backup", "lost",      "retries", "installs",       "chosen"};
    static_assert(std::size(kKinds) == static_cast<size_t>(Kind::kChosen) + 1);
    Json object = {{"kind", kKinds[static_cast<size_t>(event.kind)]},
                   {"phase", to_text(event.phase)},
                   {"done", event.done},
                   {"total", event.total},
                   {"seconds", event.seconds},
                   {"rom", to_text(event.rom)}};
    if (!event.text.empty())
        object["text"] = printable(event.text);
    if (!event.status)
        object["error"] = json_of(event.status);
    return object;
}

Json json_of(const engine::Report& report)
{
    Json object = {{"rom", to_text(report.rom)},
                   {"up_to_date", report.up_to_date},
                   {"stopped", report.stopped},
                   {"left_unlocked", report.left_unlocked},
                   {"backup", printable(report.backup.string())},
                   {"bytes", report.bytes},
                   {"version_before", printable(report.version_before)},
                   {"version_after", printable(report.version_after)},
                   {"error", nullptr}};
    if (!report.status)
        object["error"] = json_of(report.status);
    return object;
}

Json json_of(const nyxus::Status& status)
{
    return {{"reason", to_text(status.reason())},
            {"code", status.code()},
            {"message", printable(status.message())},
            {"advice", ""}};
}

Response response_of(const Json& value, unsigned status)
{
    return {status, "application/json", json::printed(value)};
}

Response response_of(const nyxus::Status& status)
{
    const auto code_of = [](Reason reason) -> unsigned {
        switch (reason) {
            case Reason::kCameraGone:
            case Reason::kNoBackup:
                return 404;
            case Reason::kBusy:
            case Reason::kNotSupported:
            case Reason::kNothingToRecover:
            case Reason::kUncertainBackup:
                return 409;
            case Reason::kPermissionDenied:
            case Reason::kUntrusted:
                return 403;
            case Reason::kOutOfRange:
                return 400;
            case Reason::kWrongImage:
            case Reason::kDowngrade:
                return 422;
            default:
                return 502;
        }
    };
    return response_of(Json{{"error", json_of(status)}}, code_of(status.reason()));
}

Response error_response(unsigned status, Reason reason, const std::string& message,
                        const std::string& advice)
{
    return response_of(Json{{"error",
                             {{"reason", to_text(reason)},
                              {"code", 0},
                              {"message", printable(message)},
                              {"advice", advice}}}},
                       status);
}

} // namespace studio
