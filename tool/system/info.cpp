// SPDX-License-Identifier: Apache-2.0
#include "command_line/command_line.h"
#include "commands.h"
#include "session/choose.h"
#include "session/run.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <algorithm>
#include <nyxus/engine/backups.hpp>

namespace tool {

namespace {

std::string flash_id(const nyxus::Flash& flash)
{
    return format("%02X %02X %02X", flash.id[0], flash.id[1], flash.id[2]);
}

std::string xu_version(const Camera& camera)
{
    const auto version = camera.xu_version();
    return version ? format("0x%04X", *version) : "none";
}

std::string set_file(const NyDevice& device)
{
    return printable_field(device.szSetfileVer, sizeof device.szSetfileVer);
}

std::string rom_sentence(const Camera& camera)
{
    const NyDevice& device = *camera.device();
    if (camera.rom_state() == RomState::kUnknown)
        return "unknown; no SPI flash answers, so it is a blank EEPROM or missing";
    const std::string size = format("%u KiB", device.dwExtRomSize / 1024);
    if (!camera.has_spi_flash())
        return "I2C EEPROM, " + size;
    const nyxus::Flash flash = camera.flash().value();
    const std::string id = flash_id(flash);
    if (flash.name.empty())
        return "SPI flash that is not in the catalogue (ID " + id + "), " + size + " used";
    return "SPI flash " + printable(flash.name) + format(" (%u KiB, ", flash.part_bytes / 1024) +
           id + "), " + size + " used";
}

const char* rom_kind(const Camera& camera)
{
    if (camera.rom_state() == RomState::kUnknown)
        return "unknown";
    return camera.has_spi_flash() ? "spi" : "eeprom";
}

std::string features(const NyDevice& device)
{
    std::string list;
    if (device.xFeatureXU != 0)
        list += "version record, ";
    if (device.xFeatureEM != 0)
        list += "memory extension, ";
    return list.empty() ? "none" : list.substr(0, list.size() - 2);
}

Members json_info(const Camera& camera)
{
    const NyDevice& device = *camera.device();
    Members rom = {{"kind", rom_kind(camera)},
                   {"size_bytes", device.dwExtRomSize},
                   {"holds_firmware", camera.rom_state() == RomState::kFirmware}};
    std::ranges::move(json_of(engine::Backups().history(camera)), std::back_inserter(rom));
    if (const auto flash = camera.flash()) {
        rom.push_back({"id", flash_id(*flash)});
        if (!flash->name.empty()) {
            rom.push_back({"part", printable(flash->name)});
            rom.push_back({"part_size_bytes", flash->part_bytes});
        }
    }
    Members object = json_of(camera.info());
    object.insert(
        object.end(),
        {
            {"chip", camera.chip()},
            {"family", camera.family()},
            {"internal_firmware", printable_field(device.szIntFwVer, sizeof device.szIntFwVer)},
            {"runs", camera.runs_external_firmware() ? "external firmware" : "mask ROM"},
            {"external_firmware", device.wExtFwVer},
            {"sensor_application", device.wExtSensorApId},
            {"set_file", device.oFwStatus.xSetfileExist != 0 ? set_file(device) : ""},
            {"xu_version", device.xFeatureXU != 0 ? Value(device.oXuCtrlVer.wVersion) : Value()},
            {"memory_extension", device.xFeatureEM != 0},
            {"rom", rom},
        });
    return object;
}

std::string text_info(const Camera& camera)
{
    const NyDevice& device = *camera.device();
    const CameraEntry& entry = camera.info();
    const std::pair<const char*, std::string> rows[] = {
        {"Camera", entry.bus_address() + ", port " + entry.port_path +
                       (entry.serial.empty() ? "" : ", serial " + entry.serial)},
        {"Product", entry.product},
        {"Chip", camera.chip() + " (" + camera.family() + ")"},
        {"Internal firmware", printable_field(device.szIntFwVer, sizeof device.szIntFwVer)},
        {"Firmware", camera.firmware_sentence()},
        {"Sensor application", format("0x%04X", device.wExtSensorApId)},
        {"Set-file", device.oFwStatus.xSetfileExist != 0 ? set_file(device) : "none"},
        {"External ROM", rom_sentence(camera)},
        {"XU version", xu_version(camera)},
        {"Features", features(device)},
    };
    const engine::RomHistory history = engine::Backups().history(camera);
    std::string lines;
    for (const auto& [name, value] : rows)
        lines += (lines.empty() ? "" : "\n") + padded(name, 20) + value;
    if (!history.since.empty())
        lines += "\n" + padded("Journal", 20) + printable(history.sentence());
    return lines;
}

} // namespace

static ExitCode run_info(Console& console, const Arguments& arguments)
{
    const Camera camera = open_chosen(console, arguments);
    console.drain();
    if (arguments.json) {
        say_json(console, arguments, json_info(camera));
    } else {
        console.display().say(text_info(camera));
    }
    return kExitOk;
}

void add_info_command(Command& app, Arguments& arguments)
{
    Command& command = add_command(
        app, "info", "Show what a camera says about itself, its firmware and its ROM", "-c 1-2");
    add_all(command, arguments);
    set_run(command, arguments, run_info);
}

} // namespace tool
