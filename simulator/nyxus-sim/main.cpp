// SPDX-License-Identifier: Apache-2.0
#include "camera_request.h"
#include "cameras/shipped.h"
#include "command_line/completion.h"
#include "command_line/parse.h"
#include "commands.h"
#include "state_commands.h"
#include "text/printable.h"
#include "watch/pcap_file.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

namespace {

using command_line::Command;
using command_line::kUsageCode;
using command_line::Option;

constexpr int kFailureCode = 1;
constexpr int kRunFailureCode = 125; // not to be taken for the program's own

constexpr char kExamples[] = R"(Examples:
  nyxus-sim models
  nyxus-sim describe rowan-spi > my.toml && nyxus-sim run --camera my.toml -- nyxus info
  nyxus-sim run -- lsusb -v -d 1162:
  nyxus-sim run --camera rowan-spi,serial=A1 --camera rowan-spi,serial=A2,bus=2 -- nyxus list
  nyxus-sim image --model rowan-spi --version 0x0205 new.bin
  nyxus-sim run --rom camera.rom -- nyxus upgrade new.bin
  nyxus-sim serve --camera rowan-spi        (then: usbip attach -r 127.0.0.1 -b 1-1)
  sudo nyxus-sim attach --camera rowan-spi
  nyxus-sim run --pcap upgrade.pcap --log -- nyxus upgrade new.bin
  nyxus-sim run -- sh -c 'nyxus-sim do unplug; nyxus info; nyxus-sim state'

run exits with the program's code, 128+N when it died of signal N, 127 when there is no such
program, 126 when it cannot be run, 125 when the simulation itself failed, 124 when
a fault never happened and --strict was given. Wrong arguments: 2.
)";

/// For the completion of command lines: the models, or a description file.
Option& naming_model(Option& option)
{
    return option.offering_files().offering([] {
        command_line::Words names;
        std::ranges::transform(sim::models(), std::back_inserter(names), &sim::CameraModel::name);
        return names;
    });
}

void add_watch_options(Command& command, sim::WatchArguments& arguments)
{
    constexpr uint32_t kSmallestSnaplen = 128;
    command.file("--pcap", &arguments.pcap_file,
                 "Capture all USB traffic for Wireshark; '-' is standard output");
    command
        .number("--pcap-snaplen", &arguments.pcap_snaplen,
                {kSmallestSnaplen, sim::kLargestPcapRecord},
                "Cut each record of the capture at this length")
        .shown_as("BYTES")
        .showing_default();
    command.text_or("--log", "-", &arguments.log_file,
                    "Tell in plain words what the cameras are asked, on standard error or in "
                    "--log=FILE");
    command
        .file("--state-socket", &arguments.state_socket,
              "Listen there for 'nyxus-sim state' and 'do' of other terminals")
        .shown_as("PATH");
    command.flag("--log-all", &arguments.log_all,
                 "Repeated requests in lines of their own instead of a number");
}

void add_simulation_options(Command& command, sim::SimulationArguments& arguments)
{
    naming_model(
        command.text("--camera", &arguments.cameras,
                     "A camera: MODEL[,serial=TEXT][,bus=N][,rom=FILE][,blank][,driver=uvcvideo]; "
                     "MODEL may "
                     "be a description file; may be repeated"))
        .shown_as("CAMERA");
    command.file("--rom", &arguments.rom_files,
                 "Keep the ROM in this file between runs; for the cameras in their order");
    command
        .choice(
            "--speed", &arguments.speed, {"real", "fast"},
            "real: as long as the hardware takes; fast: usleep() takes no time, and video is not "
            "paced")
        .shown_as("real|fast");
    constexpr unsigned kMostMib = 2047;
    command
        .number("--usbfs-memory", &arguments.usbfs_memory_mib, {0, kMostMib},
                "What the kernel lends to USB transfers, 16 on most machines; 0: no limit")
        .shown_as("MIB")
        .showing_default();
    add_watch_options(command, arguments.watch);
    command.file("--faults", &arguments.fault_file,
                 "What goes wrong, and when: a TOML file, see nyxus-faults(5)");
}

/// What the command line asks for.
struct Job {
    std::function<int()> work;
    int failure_code = kFailureCode;
};

/// What the command line asks of each command.
struct Arguments {
    sim::RunArguments run;
    sim::ServeArguments serve;
    sim::SimulationArguments attach;
    sim::ImageArguments image;
    sim::DescribeArguments describe;
    sim::StateArguments state;
};

int run(const sim::RunArguments& arguments)
{
    if (arguments.program.empty())
        throw sim::UsageError("which program? Write: nyxus-sim run [OPTIONS] -- PROGRAM ARGUMENTS");
    return sim::run_program(arguments);
}

void add_run(Command& app, sim::RunArguments& arguments, Job& job)
{
    Command& command = app.command("run", "Run a program with simulated cameras plugged in")
                           .footer("The program and its arguments follow after --");
    add_simulation_options(command, arguments.simulation);
    command.flag("--test-bus", &arguments.simulation.for_tests,
                 "For test suites: begin without cameras, which the program plugs in itself");
    command.flag("--strict", &arguments.strict,
                 "A fault that never happened makes the run fail, with exit code 124");
    command.does([&] { job = {[&] { return run(arguments); }, kRunFailureCode}; });
}

void add_serve(Command& app, sim::ServeArguments& arguments, Job& job)
{
    Command& command = app.command(
        "serve", "Offer simulated cameras to the kernels of this or other machines, over USB/IP");
    command
        .text("--listen", &arguments.listen,
              "Where; port 0 is a free one, any host but the loopback is open to everybody")
        .shown_as("HOST:PORT")
        .showing_default();
    add_simulation_options(command, arguments.simulation);
    command.does([&] { job.work = [&] { return sim::serve(arguments); }; });
}

void add_attach(Command& app, sim::SimulationArguments& arguments, Job& job)
{
    Command& command = app.command(
        "attach", "Plug simulated cameras into this machine's kernel until Ctrl-C; as root");
    add_simulation_options(command, arguments);
    command.does([&] { job.work = [&] { return sim::attach(arguments); }; });
}

void add_image(Command& app, sim::ImageArguments& arguments, Job& job)
{
    Command& command = app.command("image", "Make a firmware or MFi image, always the same");
    naming_model(command.text("--model", &arguments.model,
                              "Camera model, or description file, that the firmware is for"));
    command.text("--version", &arguments.version, "Firmware version, such as 0x0205");
    command.number("--size", &arguments.size_bytes, "Size of the image in bytes");
    command.number("--seed", &arguments.seed, "Another seed, other contents").showing_default();
    const Option& mfi = command.flag("--mfi", &arguments.mfi, "An MFi image instead of a firmware");
    command.text("--serial", &arguments.serial, "Serial number inside the MFi image").needing(mfi);
    command.file("FILE", &arguments.file, "File to write").required();
    command.does([&] { job.work = [&] { return sim::make_image(arguments); }; });
}

void add_describe(Command& app, sim::DescribeArguments& arguments, Job& job)
{
    Command& command =
        app.command("describe", "Explain camera descriptions, or print that of a model");
    naming_model(command.text("MODEL", &arguments.model, "Print this model's description"));
    command.flag("--flash-parts", &arguments.flash_parts, "List the flash parts by name");
    command.flag("--eeprom-parts", &arguments.eeprom_parts, "List the EEPROMs by name");
    command.does([&] { job.work = [&] { return sim::describe(arguments); }; });
}

// What follows "--" is the program's, options and all.
std::vector<std::string> split_program(int& argc, char** argv)
{
    char** const end = argv + argc;
    char** const mark = std::find(argv, end, std::string("--"));
    if (mark == end)
        return {};
    argc = static_cast<int>(mark - argv);
    return {mark + 1, end};
}

int fail(const std::exception& error, int code)
{
    std::fprintf(stderr, "nyxus-sim: %s\n", text::printable_lines(error.what()).c_str());
    return code;
}

void add_commands(Command& app, Arguments& arguments, Job& job)
{
    add_run(app, arguments.run, job);
    add_serve(app, arguments.serve, job);
    add_attach(app, arguments.attach, job);
    app.command("models", "List the camera models").does([&] { job.work = sim::list_models; });
    add_describe(app, arguments.describe, job);
    add_image(app, arguments.image, job);
    sim::add_state_commands(app, arguments.state, job.work);
}

int command_line_of(int argc, char** argv)
{
    command_line::Program app({.name = "nyxus-sim",
                               .summary = "Simulated NYXUS cameras for unmodified programs",
                               .version = "nyxus-sim " NYXUS_VERSION});
    app.footer(kExamples).needing_command();
    Arguments arguments;
    Job job;
    add_commands(app, arguments, job);
    if (command_line::answer_completion(app, argc, argv))
        return 0;
    arguments.run.program = split_program(argc, argv);
    if (const auto code = command_line::parse(app, argc, argv))
        return *code;
    try {
        return job.work();
    } catch (const sim::UsageError& error) {
        return fail(error, kUsageCode);
    } catch (const std::invalid_argument& error) { // also a mistake in a description
        return fail(error, kUsageCode);
    } catch (const std::exception& error) {
        return fail(error, job.failure_code);
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return command_line_of(argc, argv);
    } catch (const std::exception& error) {
        return fail(error, kFailureCode);
    }
}
