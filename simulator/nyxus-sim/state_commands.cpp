// SPDX-License-Identifier: Apache-2.0
#include "state_commands.h"

#include "camera_request.h"
#include "files/replace.h"
#include "state_client.h"
#include "text/hex.h"
#include "text/numbers.h"

#include <cstdio>
#include <stdexcept>

namespace sim {

using json = nlohmann::ordered_json;

namespace {

void add_place_options(CLI::App* command, StateArguments& arguments)
{
    command
        ->add_option("--socket", arguments.socket,
                     "The simulation that listens there, instead of the one around this program")
        ->type_name("PATH");
    command
        ->add_option("--camera", arguments.camera,
                     "Serial number of the camera, or its place on the command line from 1")
        ->type_name("SERIAL|N");
}

void add_value(CLI::App* command, StateArguments& arguments, const char* help)
{
    constexpr int kMost = 0xFF;
    command->add_option("VALUE", arguments.value, help)
        ->required()
        ->transform(text::without_leading_zeros, "")
        ->check(CLI::Range(0, kMost));
}

void add_acts(CLI::App* command, StateArguments& arguments)
{
    const auto add = [&](const char* name, const char* text) {
        CLI::App* act = command->add_subcommand(name, text);
        add_place_options(act, arguments);
        return act;
    };
    add("motion-alarm", "The picture moves: set the alarm bit");
    add_value(add("touch", "Put a finger on the fingerprint board, or take it away"), arguments,
              "What the detector says; 0: no finger");
    add("unplug", "Take the camera off the bus")
        ->add_flag("--silent", arguments.silent, "Without a hot-plug event");
    add("replug", "Plug it in again: it starts anew, at another address")
        ->add_option("--port", arguments.port, "Into this port of its bus, instead of its own")
        ->transform(text::without_leading_zeros, "")
        ->type_name("N");
    CLI::App* write = add("register", "Write a register of the controller");
    write->add_option("ADDRESS", arguments.address, "Of the register")
        ->required()
        ->transform(text::without_leading_zeros, "");
    add_value(write, arguments, "New contents");
}

// "0x0B00-0x0BFF", or one register.
json register_range(const std::string& text)
{
    constexpr uint64_t kLastRegister = 0xFFFF;
    const size_t dash = text.find('-');
    const auto first = text::parse_number(text.substr(0, dash), kLastRegister);
    const auto last = dash == std::string::npos
                          ? first
                          : text::parse_number(text.substr(dash + 1), kLastRegister);
    if (!first || !last || *first > *last)
        throw UsageError("'" + text + "' is no range of registers, such as 0x0B00-0x0BFF");
    return json::array({*first, *last});
}

void save_rom(json& cameras, const std::string& file)
{
    if (cameras.size() != 1)
        throw UsageError("whose ROM? Choose one by --camera");
    json& rom = cameras.front().at("rom");
    const auto contents = text::bytes_from_hex(rom.at("contents").get<std::string>());
    if (!contents)
        throw std::runtime_error("the simulation gave no contents of the ROM");
    files::replace_file(file, *contents);
    rom.erase("contents");
}

} // namespace

void add_state_commands(CLI::App& app, StateArguments& arguments)
{
    CLI::App* state =
        app.add_subcommand("state", "Print what is inside the running cameras, as JSON");
    add_place_options(state, arguments);
    state
        ->add_option("--registers", arguments.registers,
                     "These registers instead of those that are not 0")
        ->type_name("FIRST-LAST");
    state->add_option("--rom", arguments.rom_file, "Save the camera's ROM there")
        ->type_name("FILE");

    CLI::App* acts = app.add_subcommand("do", "Do something to a running camera");
    acts->require_subcommand(1);
    add_acts(acts, arguments);
}

int print_state(const StateArguments& arguments)
{
    json request = {{"command", "state"}};
    if (!arguments.camera.empty())
        request["camera"] = arguments.camera;
    if (!arguments.registers.empty())
        request["registers"] = register_range(arguments.registers);
    if (!arguments.rom_file.empty())
        request["rom"] = true;
    json cameras = ask_simulation(arguments.socket, request).at("cameras");
    if (!arguments.rom_file.empty())
        save_rom(cameras, arguments.rom_file);
    std::printf("%s\n", cameras.dump(2).c_str());
    return 0;
}

int act(const CLI::App& command, const StateArguments& arguments)
{
    const std::string name = command.get_subcommands().front()->get_name();
    json request = {{"command", name}, {"value", arguments.value}, {"silent", arguments.silent}};
    if (name == "register")
        request["address"] = arguments.address;
    if (arguments.port)
        request["port"] = *arguments.port;
    if (!arguments.camera.empty())
        request["camera"] = arguments.camera;
    (void)ask_simulation(arguments.socket, request);
    return 0;
}

} // namespace sim
