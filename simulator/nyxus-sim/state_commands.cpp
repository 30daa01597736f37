// SPDX-License-Identifier: Apache-2.0
#include "state_commands.h"

#include "camera_request.h"
#include "faults/fault_file.h"
#include "files/replace.h"
#include "files/unix_socket.h"
#include "json/json.h"
#include "text/hex.h"
#include "text/numbers.h"
#include "text/printable.h"
#include "watch/line_server.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

namespace {

constexpr size_t kLongestReply = 64u << 20;

std::string place_of(const std::string& path)
{
    if (!path.empty())
        return path;
    const char* place = std::getenv(kSocketVariable);
    if (place == nullptr) {
        throw std::runtime_error(
            "no simulation is running around this program; call it inside "
            "'nyxus-sim run', or name a socket by --socket");
    }
    return place;
}

std::string receive_line(int socket)
{
    std::string line;
    std::array<char, 65536> bytes{};
    while (line.size() < kLongestReply && (line.empty() || line.back() != '\n')) {
        const ssize_t got = recvfrom(socket, bytes.data(), bytes.size(), 0, nullptr, nullptr);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        line.append(bytes.data(), static_cast<size_t>(got));
    }
    return line;
}

} // namespace

json::Json ask_simulation(const std::string& path, const json::Json& request)
{
    const std::string place = place_of(path);
    const files::Descriptor socket = files::connect_to(place);
    if (!socket) {
        throw std::runtime_error("no simulation listens at " + text::in_quotes(place) + ": " +
                                 std::strerror(errno));
    }
    const bool sent = send_line(socket.get(), json::printed(request));
    const std::string line = sent ? receive_line(socket.get()) : "";
    auto reply = json::parsed(line);
    if (!reply.is_object())
        throw std::runtime_error("the simulation at " + text::in_quotes(place) + " gave no answer");
    if (!reply.value("ok", false))
        throw std::runtime_error(reply.value("error", "the simulation refused"));
    return reply;
}

} // namespace sim
