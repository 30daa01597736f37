// SPDX-License-Identifier: Apache-2.0
#include "state_commands.h"

#include "camera_request.h"
#include "faults/fault_file.h"
#include "files/replace.h"
#include "json/json.h"
#include "state_client.h"
#include "text/hex.h"
#include "text/numbers.h"

#include <cstdio>
#include <stdexcept>

namespace sim {

using command_line::Command;
using json::Json;

namespace {

// "0x0B00-0x0BFF", or one register.
Json register_range(const std::string& text)
{
    constexpr uint64_t kLastRegister = 0xFFFF;
    const size_t dash = text.find('-');
    const auto first = text::parse_number(text.substr(0, dash), kLastRegister);
    const auto last = dash == std::string::npos
                          ? first
                          : text::parse_number(text.substr(dash + 1), kLastRegister);
    if (!first || !last || *first > *last)
        throw UsageError("'" + text + "' is no range of registers, such as 0x0B00-0x0BFF");
    return Json::array({*first, *last});
}

void save_rom(Json& cameras, const std::string& file)
{
    if (cameras.size() != 1)
        throw UsageError("whose ROM? Choose one by --camera");
    Json& rom = cameras.front().at("rom");
    const auto contents = text::bytes_from_hex(rom.at("contents").get<std::string>());
    if (!contents)
        throw std::runtime_error("the simulation gave no contents of the ROM");
    files::replace_file(file, *contents);
    rom.erase("contents");
}

int print_state(const StateArguments& arguments)
{
    Json request = {{"command", "state"}};
    if (!arguments.camera.empty())
        request["camera"] = arguments.camera;
    if (!arguments.registers.empty())
        request["registers"] = register_range(arguments.registers);
    if (!arguments.rom_file.empty())
        request["rom"] = true;
    Json cameras = ask_simulation(arguments.socket, request).at("cameras");
    if (!arguments.rom_file.empty())
        save_rom(cameras, arguments.rom_file);
    std::printf("%s\n", json::printed(cameras, 2).c_str());
    return 0;
}

// One word that is no effect may be the name of a file.
std::string typed_faults(const std::vector<std::string>& words)
{
    const std::string& word = words.front();
    const bool is_file = words.size() == 1 && word.find_first_of("=[{\n") == std::string::npos &&
                         (word.find('/') != std::string::npos || word.ends_with(".toml"));
    return is_file ? read_fault_text(word) : fault_text(words);
}

int perform(const std::string& act, const StateArguments& arguments)
{
    Json request = {{"command", act}, {"value", arguments.value}, {"silent", arguments.silent}};
    if (act == "register")
        request["address"] = arguments.address;
    if (arguments.port)
        request["port"] = *arguments.port;
    if (!arguments.camera.empty())
        request["camera"] = arguments.camera;
    if (act == "fault")
        request["faults"] = typed_faults(arguments.fault);
    (void)ask_simulation(arguments.socket, request);
    return 0;
}

void add_place_options(Command& command, StateArguments& arguments)
{
    command
        .file("--socket", &arguments.socket,
              "The simulation that listens there, instead of the one around this program")
        .shown_as("PATH");
    command
        .text("--camera", &arguments.camera,
              "Serial number of the camera, or its place on the command line from 1")
        .shown_as("SERIAL|N");
}

void add_value(Command& command, StateArguments& arguments, const char* help)
{
    constexpr command_line::Range kByte{0, 0xFF};
    command.number("VALUE", &arguments.value, kByte, help).required();
}

void add_acts(Command& command, StateArguments& arguments, std::function<int()>& job)
{
    const auto add = [&](const char* name, const char* text) -> Command& {
        Command& act = command.command(name, text);
        add_place_options(act, arguments);
        return act.does([&, name] { job = [&, name] { return perform(name, arguments); }; });
    };
    add("motion-alarm", "The picture moves: set the alarm bit");
    add_value(add("touch", "Put a finger on the fingerprint board, or take it away"), arguments,
              "What the detector says; 0: no finger");
    add("unplug", "Take the camera off the bus")
        .flag("--silent", &arguments.silent, "Without a hot-plug event");
    add("replug", "Plug it in again: it starts anew, at another address")
        .number("--port", &arguments.port, "Into this port of its bus, instead of its own")
        .shown_as("N");
    Command& fault =
        add("fault", "Something goes wrong from now on: stall unit=6 times=1, or TOML, or a file");
    fault.text("FAULT", &arguments.fault, "What happens, and KEY=VALUE of nyxus-faults(5)")
        .required()
        .offering_files();
    add("clear", "Nothing that was planned goes wrong any more");
    Command& write = add("register", "Write a register of the controller");
    write.number("ADDRESS", &arguments.address, "Of the register").required();
    add_value(write, arguments, "New contents");
}

} // namespace

void add_state_commands(Command& app, StateArguments& arguments, std::function<int()>& job)
{
    Command& state = app.command("state", "Print what is inside the running cameras, as JSON");
    add_place_options(state, arguments);
    state
        .text("--registers", &arguments.registers,
              "These registers instead of those that are not 0")
        .shown_as("FIRST-LAST");
    state.file("--rom", &arguments.rom_file, "Save the camera's ROM there");
    state.does([&] { job = [&] { return print_state(arguments); }; });

    Command& acts = app.command("do", "Do something to a running camera").needing_command();
    add_acts(acts, arguments, job);
}

} // namespace sim
