// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "arguments.h"
#include "camera.h"
#include "commands.h"
#include "console.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// What the commands for single features of a camera share. Each of them declares its own command
// line; parsing it leaves in Arguments what is to be done.
namespace tool {

using Values = nlohmann::ordered_json;

/// A camera with a console to speak on, for the time of a command.
struct Session {
    Console& console;
    const Arguments& arguments;
    Camera camera;

    NyDevice* device() { return &camera.device(); }
    /// Prints an object's members: a line each, or JSON. Lists of numbers are bytes.
    void print(const Values& values);
    /// "flip: off -> on".
    void print_change(const std::string& name, const Values& before, const Values& after);
    /// "encoder: reset".
    void print_done(const std::string& name, const std::string& what);
    /// Ends the command unless the library has succeeded.
    void check(const std::string& doing, int32_t status) const;
};

using SessionAction = std::function<void(Session&)>;

/// A command below `parent`, with its example.
CLI::App* add_feature(CLI::App& parent, const std::string& name, const std::string& summary,
                      const std::string& example);
/// What the command does with the camera; nothing when a command below it was chosen. `check_first`
/// refuses what is wrong whatever the camera, before anything is sent.
void set_action(
    CLI::App* command, Arguments& arguments, SessionAction action,
    std::function<void()> check_first = [] {});

/// A number in the given range; decimal, or hexadecimal with 0x.
CLI::Option* add_number(CLI::App* command, const std::string& name, uint32_t& value, uint32_t least,
                        uint32_t most, const std::string& help);
/// The required ADDRESS of a memory, whose range is told in hexadecimal.
CLI::Option* add_address(CLI::App* command, uint32_t& value, uint32_t least, uint32_t most);
/// One or more bytes.
CLI::Option* add_bytes(CLI::App* command, const std::string& name, std::vector<uint32_t>& values,
                       const std::string& help);
/// A text out of a list.
CLI::Option* add_choice(CLI::App* command, const std::string& name, std::string& value,
                        const std::vector<std::string>& choices, const std::string& help);

std::vector<uint8_t> to_bytes(const std::vector<uint32_t>& values);
inline const char* on_or_off(bool on)
{
    return on ? "on" : "off";
}

// Each declares its commands.
void add_switch_commands(CLI::App& app, Arguments& arguments);
void add_led_command(CLI::App& app, Arguments& arguments);
void add_gpio_command(CLI::App& app, Arguments& arguments);
void add_i2c_command(CLI::App& app, Arguments& arguments);
void add_memory_commands(CLI::App& app, Arguments& arguments);
void add_motion_command(CLI::App& app, Arguments& arguments);
void add_reserved_command(CLI::App& app, Arguments& arguments);
void add_osd_command(CLI::App& app, Arguments& arguments);
void add_h264_command(CLI::App& app, Arguments& arguments);
void add_fingerprint_command(CLI::App& app, Arguments& arguments);
void add_snapshot_command(CLI::App& app, Arguments& arguments);
void add_stream_command(CLI::App& app, Arguments& arguments);
void add_explain_command(CLI::App& app, Arguments& arguments);
void add_feature_commands(CLI::App& app, Arguments& arguments);

} // namespace tool
