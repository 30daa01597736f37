// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command_line.h"
#include "commands.h"
#include "session/dry_run.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

// What the commands for single features of a camera share. Each of them declares its own command
// line; parsing it leaves in Arguments what is to be done.
namespace tool {

/// A setting that is changed: how it is read, and how it is written.
struct Change {
    std::string name; ///< "flip"
    std::function<Value()> read;
    Value wanted;      ///< what it reads as then; nothing: it is only shown
    std::string doing; ///< "setting flip"
    std::function<int32_t()> write;
    Cost cost;                   ///< of all that a dry run leaves out
    bool read_back = true;       ///< else it is believed
    bool reading_writes = false; ///< so that a dry run does not even ask
};

/// A camera with a console to speak on, for the time of a command.
struct Session {
    Console& console;
    const Arguments& arguments;
    Camera camera;

    NyDevice* device() { return camera.device(); }
    /// Makes the file; standard output ("-") carries nothing else then.
    void write(const std::string& file, std::span<const uint8_t> bytes);
    /// Prints an object's members: a line each, or JSON. Lists of numbers are bytes.
    void print(const Members& values);
    /// The same where more follow: in JSON one line, which begins with its "event".
    void print_event(const char* event, const Members& values);
    /// Makes the change, if one is wanted, and prints "flip: off -> on"; with --dry-run tells of it
    /// only.
    void make(const Change& change);
    /// The same for what cannot be read: "encoder: reset". `more` is what the cost leaves out.
    void order(const std::string& name, const Value& what, const std::string& doing,
               const std::function<int32_t()>& write, const Cost& cost,
               const std::string& more = "");
    /// Ends the command unless the library has succeeded.
    void check(const std::string& doing, int32_t status) const;

private:
    /// Some commands print until nobody listens any more.
    void end_unless_heard();
};

using SessionAction = std::function<void(Session&)>;

/// What the command does with the camera; nothing when a command below it was chosen. `check_first`
/// refuses what is wrong whatever the camera, before anything is sent.
void set_action(
    Command& command, Arguments& arguments, SessionAction action,
    std::function<void()> check_first = [] {});
/// The same for a command that writes, which has --dry-run.
void set_writing_action(
    Command& command, Arguments& arguments, SessionAction action,
    std::function<void()> check_first = [] {});

/// What a command that changes the ROM reads before.
Cost backup_cost(Session& session);

std::vector<uint8_t> to_bytes(const std::vector<uint32_t>& values);
/// What memory holds, by its addresses, 16 bytes each.
Members lines_of(std::span<const uint8_t> bytes, uint32_t address, int digits = 4);
/// As people read it.
std::string shown(const Value& value);
inline Value on_or_off(bool on)
{
    return Value::shown_as(on ? "on" : "off", on);
}

// Each declares its commands.
void add_switch_commands(Command& app, Arguments& arguments);
void add_led_command(Command& app, Arguments& arguments);
void add_gpio_command(Command& app, Arguments& arguments);
void add_memory_commands(Command& app, Arguments& arguments);
void add_motion_command(Command& app, Arguments& arguments);
void add_osd_command(Command& app, Arguments& arguments);
void add_h264_command(Command& app, Arguments& arguments);
void add_fingerprint_command(Command& app, Arguments& arguments);
void add_snapshot_command(Command& app, Arguments& arguments);
void add_stream_command(Command& app, Arguments& arguments);
void add_formats_command(Command& app, Arguments& arguments);
void add_control_command(Command& app, Arguments& arguments);

} // namespace tool
