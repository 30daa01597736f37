// SPDX-License-Identifier: Apache-2.0
#include "camera_request.h"
#include "cameras/shipped.h"
#include "command_line/completion.h"
#include "commands.h"
#include "state_commands.h"
#include "text/numbers.h"
#include "text/printable.h"
#include "watch_options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

namespace {

constexpr int kUsageCode = 2;
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
program, 126 when it cannot be run, 125 when the simulation itself failed. Wrong arguments: 2.
)";

void add_simulation_options(CLI::App* command, sim::SimulationArguments& arguments)
{
    command
        ->add_option("--camera", arguments.cameras,
                     "A camera: MODEL[,serial=TEXT][,bus=N][,rom=FILE][,blank]; MODEL may be a "
                     "description file; may be repeated")
        ->type_name("CAMERA")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command
        ->add_option("--rom", arguments.rom_files,
                     "Keep the ROM in this file between runs; for the cameras in their order")
        ->type_name("FILE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command
        ->add_option_function<std::string>(
            "--speed", [&](const std::string& speed) { arguments.fast = speed == "fast"; },
            "real: as long as the hardware takes; fast: usleep() takes no time, and video is not "
            "paced")
        ->type_name("real|fast")
        ->check(CLI::IsMember({"real", "fast"}));
    constexpr unsigned kMostMib = 2047;
    command
        ->add_option("--usbfs-memory", arguments.usbfs_memory_mib,
                     "What the kernel lends to USB transfers, 16 on most machines; 0: no limit")
        ->transform(text::without_leading_zeros, "")
        ->type_name("MIB")
        ->check(CLI::Range(0U, kMostMib))
        ->capture_default_str();
    sim::add_watch_options(command, arguments.watch);
    command
        ->add_option("--faults", arguments.fault_file,
                     "What goes wrong, and when: a JSON list (see docs/simulator.md, Faults)")
        ->type_name("FILE");
}

void add_run(CLI::App& app, sim::RunArguments& arguments)
{
    CLI::App* run = app.add_subcommand("run", "Run a program with simulated cameras plugged in");
    run->footer("The program and its arguments follow after --");
    add_simulation_options(run, arguments.simulation);
}

void add_serve(CLI::App& app, sim::ServeArguments& arguments)
{
    CLI::App* serve = app.add_subcommand(
        "serve", "Offer simulated cameras to the kernels of this or other machines, over USB/IP");
    serve
        ->add_option("--listen", arguments.listen,
                     "Where; port 0 is a free one, any host but the loopback is open to everybody")
        ->type_name("HOST:PORT")
        ->capture_default_str();
    add_simulation_options(serve, arguments.simulation);
}

void add_attach(CLI::App& app, sim::SimulationArguments& arguments)
{
    CLI::App* attach = app.add_subcommand(
        "attach", "Plug simulated cameras into this machine's kernel until Ctrl-C; as root");
    add_simulation_options(attach, arguments);
}

void add_image(CLI::App& app, sim::ImageArguments& arguments)
{
    CLI::App* image = app.add_subcommand("image", "Make a firmware or MFi image, always the same");
    image->add_option("--model", arguments.model,
                      "Camera model, or description file, that the firmware is for");
    image->add_option("--version", arguments.version, "Firmware version, such as 0x0205");
    image->add_option("--size", arguments.size_bytes, "Size of the image in bytes")
        ->transform(text::without_leading_zeros, "");
    image->add_option("--seed", arguments.seed, "Another seed, other contents")
        ->transform(text::without_leading_zeros, "")
        ->capture_default_str();
    CLI::Option* mfi =
        image->add_flag("--mfi", arguments.mfi, "An MFi image instead of a firmware");
    image->add_option("--serial", arguments.serial, "Serial number inside the MFi image")
        ->needs(mfi);
    image->add_option("FILE", arguments.file, "File to write")->required();
}

void add_describe(CLI::App& app, sim::DescribeArguments& arguments)
{
    CLI::App* describe =
        app.add_subcommand("describe", "Explain camera descriptions, or print that of a model");
    describe->add_option("MODEL", arguments.model, "Print this model's description");
    describe->add_flag("--flash-parts", arguments.flash_parts, "List the flash parts by name");
    describe->add_flag("--eeprom-parts", arguments.eeprom_parts, "List the EEPROMs by name");
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

/// For the completion of command lines: the models, or a description file. Running cameras have
/// other names.
std::vector<std::string> names_of_models(const CLI::Option& option)
{
    std::vector<std::string> names;
    const std::string name = option.get_single_name();
    if (name == "model" || name == "MODEL" || option.get_type_name() == "CAMERA") {
        for (const sim::CameraModel& model : sim::models())
            names.push_back(model.name);
        names.emplace_back(completion::kFiles);
    }
    return names;
}

int fail(const std::exception& error, int code)
{
    std::fprintf(stderr, "nyxus-sim: %s\n", text::printable_lines(error.what()).c_str());
    return code;
}

/// What the command line asks of each command.
struct Arguments {
    sim::RunArguments run;
    sim::ServeArguments serve;
    sim::SimulationArguments attach;
    sim::ImageArguments image;
    sim::DescribeArguments describe;
    sim::StateArguments state;
};

int dispatch(const CLI::App& app, const Arguments& arguments)
{
    if (app.got_subcommand("describe"))
        return sim::describe(arguments.describe);
    if (app.got_subcommand("state"))
        return sim::print_state(arguments.state);
    if (app.got_subcommand("do"))
        return sim::act(*app.get_subcommand("do"), arguments.state);
    if (app.got_subcommand("models"))
        return sim::list_models();
    if (app.got_subcommand("image"))
        return sim::make_image(arguments.image);
    if (app.got_subcommand("serve"))
        return sim::serve(arguments.serve);
    if (app.got_subcommand("attach"))
        return sim::attach(arguments.attach);
    const sim::RunArguments& run = arguments.run;
    if (run.program.empty())
        throw sim::UsageError("which program? Write: nyxus-sim run [OPTIONS] -- PROGRAM ARGUMENTS");
    return sim::run_program(run);
}

int command_line(int argc, char** argv)
{
    CLI::App app("Simulated NYXUS cameras for unmodified programs", "nyxus-sim");
    app.footer(kExamples);
    app.set_version_flag("--version", "nyxus-sim " NYXUS_VERSION);
    app.require_subcommand(1);
    Arguments arguments;
    add_run(app, arguments.run);
    add_serve(app, arguments.serve);
    add_attach(app, arguments.attach);
    app.add_subcommand("models", "List the camera models");
    add_describe(app, arguments.describe);
    add_image(app, arguments.image);
    sim::add_state_commands(app, arguments.state);

    if (completion::answer(app, argc, argv, names_of_models))
        return 0;
    arguments.run.program = split_program(argc, argv);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsageCode;
    }
    const int failure_code = app.got_subcommand("run") ? kRunFailureCode : kFailureCode;
    try {
        return dispatch(app, arguments);
    } catch (const sim::UsageError& error) {
        return fail(error, kUsageCode);
    } catch (const std::invalid_argument& error) { // the bed refuses a serial number, or is full
        return fail(error, kUsageCode);
    } catch (const std::exception& error) {
        return fail(error, failure_code);
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return command_line(argc, argv);
    } catch (const std::exception& error) {
        return fail(error, kFailureCode);
    }
}
