// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "failure.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace {

using namespace tool;

struct CommandRow {
    std::string_view name;
    ExitCode (*run)(Console&, const Arguments&);
};

// clang-format off
constexpr CommandRow commands[] = {
//   name       function
    {"list",    run_list},
    {"info",    run_info},
    {"upgrade", run_upgrade},
    {"erase",   run_erase},
    {"dump",    run_dump},
    {"compare", run_compare},
    {"reset",   run_reset},
    {"recover", run_recover},
};
// clang-format on

ExitCode run(Console& console, const Arguments& arguments)
{
    prepare_library(arguments.verbosity);
    if (arguments.action)
        return arguments.action(console, arguments);
    const auto row = std::ranges::find(commands, arguments.command, &CommandRow::name);
    if (row == std::end(commands))
        throw Failure(kExitUsage, "unknown command '" + arguments.command + "'");
    return row->run(console, arguments);
}

ExitCode run_reporting_failures(const Arguments& arguments)
{
    Console console(arguments.verbosity, arguments.patience_s);
    try {
        const ExitCode code = run(console, arguments);
        console.drain();
        return code;
    } catch (const Failure& failure) {
        console.drain();
        console.display().abandon();
        console.display().warn("nyxus: " + failure.text());
        return failure.code();
    }
}

} // namespace

Camera tool::open_chosen(const Arguments& arguments)
{
    return Camera::open(select_camera(list_cameras(), arguments.camera));
}

Camera tool::open_with_rom(const Arguments& arguments)
{
    constexpr uint32_t kKib = 1024;
    Camera camera = open_chosen(arguments);
    if (camera.rom_state() == RomState::kUnknown) {
        if (arguments.eeprom_kib == 0)
            throw Failure(kExitNotSupported,
                          camera.name() +
                              " has no firmware in its ROM, and no SPI flash answers; if it has an "
                              "EEPROM, 'nyxus upgrade FILE --eeprom KIB' programs it");
        camera.assume_eeprom(arguments.eeprom_kib * kKib);
    }
    return camera;
}

int main(int argc, char** argv)
{
    const ParsedArguments parsed = parse_arguments(argc, argv);
    if (parsed.finished)
        return parsed.exit_code;
    try {
        return run_reporting_failures(parsed.arguments);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "nyxus: %s\n", failure.what());
        return kExitFailure;
    }
}
