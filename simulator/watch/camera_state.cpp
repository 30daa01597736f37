// SPDX-License-Identifier: Apache-2.0
#include "watch/camera_state.h"

#include "chip/osd.h"
#include "chip/peripherals.h"
#include "json/json.h"
#include "text/format.h"
#include "text/hex.h"

#include <glib.h>

#include <algorithm>
#include <string>

namespace sim {

using json::Json;

namespace {

constexpr uint32_t kRegisters = 0x10000;

Json register_run(Controller& controller, uint32_t first, uint32_t end)
{
    std::vector<uint8_t> bytes;
    for (uint32_t address = first; address < end; ++address)
        bytes.push_back(controller.reg(static_cast<uint16_t>(address)));
    return {{"address", text::format("0x%04X", first)}, {"bytes", text::hex(bytes, " ")}};
}

// Runs of registers that are not 0; single zeros do not end one.
Json registers_that_are_set(Controller& controller)
{
    constexpr uint32_t kGap = 4;
    std::vector<uint8_t> values(kRegisters);
    for (uint32_t address = 0; address < kRegisters; ++address)
        values[address] = controller.reg(static_cast<uint16_t>(address));
    Json runs = Json::array();
    for (uint32_t first = 0; first < kRegisters; ++first) {
        if (values[first] == 0)
            continue;
        uint32_t end = first + 1;
        for (uint32_t next = end; next < kRegisters && next < end + kGap; ++next)
            end = values[next] != 0 ? next + 1 : end;
        runs.push_back(register_run(controller, first, end));
        first = end;
    }
    return runs;
}

Json firmware_state(Controller& controller)
{
    const RunningFirmware& firmware = controller.firmware;
    return {{"runs", firmware.external ? "external" : "internal"},
            {"version", text::format("0x%04X", firmware.version)},
            {"sensor_application", text::format("0x%04X", firmware.sensor_application_id)},
            {"internal_version", controller.model.internal_version}};
}

Json gpio_state(Controller& controller)
{
    Json pins = Json::array();
    for (unsigned pin = 0; pin < kGpioCount; ++pin) {
        pins.push_back(!controller.drives_gpio(pin) ? "not driven"
                       : controller.gpio(pin)       ? "high"
                                                    : "low");
    }
    return pins;
}

Json led_state(Controller& controller)
{
    Json leds = Json::array();
    for (size_t led = 0; led < Leds::kCount; ++led) {
        leds.push_back(
            text::format("0x%02X", controller.reg(static_cast<uint16_t>(Leds::kFirstReg + led))));
    }
    return leds;
}

std::string sha256(std::span<const uint8_t> bytes)
{
    gchar* sum = g_compute_checksum_for_data(G_CHECKSUM_SHA256, bytes.data(), bytes.size());
    std::string text = sum;
    g_free(sum);
    return text;
}

Json rom_state(Controller& controller, bool with_contents)
{
    const CameraModel& model = controller.model;
    const bool is_flash = model.rom_kind == RomKind::kSpiFlash;
    Json rom = {{"kind", is_flash ? "SPI flash" : "EEPROM"},
                {"part", is_flash ? model.flash.name : model.eeprom.name},
                {"bytes", controller.rom.size()},
                {"sha256", sha256(controller.rom)}};
    if (is_flash)
        rom["status"] = text::format("0x%02X", controller.flash_status());
    rom["write_protect"] = controller.write_protect;
    if (with_contents)
        rom["contents"] = text::hex(controller.rom);
    return rom;
}

Json stream_state(const StreamState& state, const std::optional<StreamFormat>& format)
{
    Json stream = {{"streaming", state.streaming}};
    if (format) {
        stream["width"] = format->size.width;
        stream["height"] = format->size.height;
        stream["format"] = name_of(format->pixels);
        stream["interval_100ns"] = format->interval_100ns;
        stream["payload_bytes"] = format->payload_bytes;
    }
    stream["frames_sent"] = state.frames_sent;
    stream["frames_dropped"] = state.frames_dropped;
    return stream;
}

Json control_state(const VideoControls& video)
{
    Json controls = Json::object();
    for (size_t control = 0; control < kPictureControls; ++control) {
        if (const auto value = video.value(static_cast<PictureControl>(control)))
            controls[std::string(kControlPlaces[control].name)] = *value;
    }
    return controls;
}

Json h264_state(Controller& controller)
{
    Json settings = Json::object();
    for (const H264Unit::Setting& setting : controller.h264().settings())
        settings[std::string(setting.name)] = text::hex(setting.value, " ");
    return settings;
}

// Bytes that are no ASCII would be no JSON either.
std::string text_of(std::span<const uint8_t> bytes)
{
    std::string text(bytes.begin(), std::ranges::find(bytes, 0));
    std::ranges::replace_if(
        text, [](char character) { return character < ' ' || character > '~'; }, '?');
    return text;
}

Json osd_state(const Osd& osd)
{
    Json strings = Json::array();
    for (size_t i = 0; i < Osd::kStringCount; ++i)
        strings.push_back(text_of(osd.string(i)));
    return {{"enabled", osd.is_enabled()}, {"strings", strings}};
}

} // namespace

Json camera_state(PluggedCamera& camera, const std::optional<RegisterRange>& registers,
                  bool with_rom)
{
    Json state = {{"model", camera.model().name}, {"serial", camera.serial()},
                  {"bus", camera.bus()},          {"port", camera.port()},
                  {"address", camera.address()},  {"plugged", camera.is_plugged()}};
    const StreamState stream = camera.stream();
    const std::optional<StreamFormat> format = camera.usb()->stream().format();

    const auto locked = camera.controller();
    Controller& controller = *locked;
    state["firmware"] = firmware_state(controller);
    state["rom"] = rom_state(controller, with_rom);
    state["stream"] = stream_state(stream, format);
    state["controls"] = control_state(camera.usb()->video());
    state["gpio"] = gpio_state(controller);
    state["leds"] = led_state(controller);
    state["motion_alarm"] = controller.motion_alarm();
    state["touch"] = controller.touch();
    state["sensor_resets"] = controller.sensor_resets;
    state["snapshot_triggers"] = controller.snapshot_triggers;
    state["h264"] = h264_state(controller);
    state["osd"] = osd_state(controller.osd());
    state["registers"] =
        registers ? Json::array({register_run(controller, registers->first, registers->last + 1U)})
                  : registers_that_are_set(controller);
    return state;
}

} // namespace sim
