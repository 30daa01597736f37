// SPDX-License-Identifier: Apache-2.0
// Reading the ROM: into a file, to the eye, or to compare it with a file.
#include "commands.h"
#include "rom/image.h"
#include "rom/programming.h"
#include "rom/range.h"
#include "session/choose.h"
#include "session/follower.h"
#include "session/run.h"
#include "session/whole_file.h"
#include "terminal/hexadecimal.h"
#include "terminal/text.h"

#include <nyxus/image.h>
#include <algorithm>

namespace tool {

namespace {

constexpr uint32_t kUsualBytes = NYXUS_FW_BIN_CAPACITY;

struct ReadArguments {
    std::string file; ///< "": shown
    RangeArguments range;
};

/// With --all each camera has a file of its own: "rom-1-2.bin".
std::string file_of(const Arguments& arguments, const std::string& file)
{
    if (!arguments.turn || file.empty())
        return file;
    std::filesystem::path path(file);
    const std::string name = path.stem().string() + "-" + arguments.turn->port_path;
    return path.replace_filename(name + path.extension().string()).string();
}

void refuse_mixture(const Arguments& arguments, const std::string& file)
{
    if ((file == "-" || file.empty()) && arguments.json)
        throw Failure(kExitUsage, "--json needs standard output for itself; name a file");
    if (file == "-" && arguments.all)
        throw Failure(kExitUsage, "standard output holds the ROM of one camera only");
}

/// What the bytes are, and how much of all there is.
std::string description_of(const Camera& camera, RomRange range, std::span<const uint8_t> bytes)
{
    const std::string part =
        format("%u bytes from 0x%04X of %u: ", range.bytes, range.address, part_bytes(camera));
    if (engine::is_blank(bytes))
        return part + "blank";
    if (range.address != 0 && range.address != NYXUS_MFI_ROM_ADDR)
        return part + "data";
    const auto facts = engine::inspect_contents({bytes.begin(), bytes.end()});
    const bool is_a_piece = facts.contents == engine::ImageFacts::Contents::kUnknown;
    return part + (is_a_piece ? "data" : summary_of(facts));
}

ExitCode read(Console& console, const Arguments& arguments, const ReadArguments& wanted,
              Result& result)
{
    const std::string file = file_of(arguments, wanted.file);
    const bool is_for_pipe = file == "-";
    if (is_for_pipe) {
        console.display().be_quiet();
    } else if (!file.empty()) {
        refuse_impossible_target(file);
    }
    Camera camera = introduce(console, result, open_with_rom(console, arguments));
    const uint32_t reachable = camera.has_spi_flash() ? readable_bytes(camera) : camera.rom_size();
    const RomRange range =
        range_of(wanted.range, reachable, std::min(camera.rom_size(), kUsualBytes));
    Follower follower(console);
    follower.expect({engine::Phase::kReading, engine::Phase::kReadingAgain});
    const auto bytes =
        value_of(engine::read_rom_twice(camera, range.address, range.bytes, follower.caller()));
    console.drain();
    const std::string what = description_of(camera, range, bytes);
    if (is_for_pipe) {
        console.display().pass_on(bytes);
        if (!arguments.quiet)
            console.display().warn(what);
        return kExitOk;
    }
    if (file.empty()) {
        console.display().say(hexadecimal(bytes, range.address));
        return finish(console, result, what);
    }
    write_file(file, bytes);
    return finish(console, result, "wrote " + what + ", to " + in_quotes(file));
}

ExitCode run_read(Console& console, const Arguments& arguments, const ReadArguments& wanted)
{
    refuse_mixture(arguments, wanted.file);
    return run_with_result(console, arguments, [&](Result& result) {
        return read(console, arguments, wanted, result);
    });
}

/// A line for each run of bytes that differ, as far as the table goes.
void print_differences(Display& display, uint32_t address, std::span<const uint8_t> rom,
                       std::span<const uint8_t> file)
{
    constexpr size_t kMostRuns = 16;
    constexpr size_t kShownBytes = 8;
    size_t runs = 0;
    for (size_t i = 0; i < rom.size(); ++i) {
        size_t end = i;
        while (end < rom.size() && rom[end] != file[end])
            ++end;
        if (end == i)
            continue;
        if (runs == 0)
            display.say(padded("ADDRESS", 10) + padded("BYTES", 7) + padded("ROM", 28) + "FILE");
        const auto shown = [&](std::span<const uint8_t> bytes) {
            const size_t count = std::min(end - i, kShownBytes);
            return bytes_text(bytes.subspan(i, count)) + (count < end - i ? " ..." : "");
        };
        if (++runs <= kMostRuns) {
            display.say(padded(format("0x%04zX", address + i), 10) +
                        padded(std::to_string(end - i), 7) + padded(shown(rom), 28) + shown(file));
        }
        i = end;
    }
    if (runs > kMostRuns)
        display.say(format("and %zu more places", runs - kMostRuns));
}

ExitCode compare(Console& console, const Arguments& arguments, const ReadArguments& wanted,
                 Result& result)
{
    std::vector<uint8_t> image = read_file(wanted.file, engine::kRomBlock, "a ROM");
    while (image.size() > 1 && image.back() == 0xFF)
        image.pop_back();
    Camera camera = introduce(console, result, open_with_rom(console, arguments));
    const RomRange range = range_of(wanted.range, camera.rom_size(), camera.rom_size());
    // A file that does not fit is different; the part that does still tells where.
    const bool fits = image.size() <= range.bytes;
    if (!fits) {
        console.display().warn(
            format("nyxus: the file has %zu bytes, the ROM only %u", image.size(), range.bytes));
        image.resize(range.bytes);
    }
    Follower follower(console);
    const auto rom = value_of(engine::read_back(camera, range.address, image, follower.caller()));
    const size_t count = engine::find_difference(rom, image).count;
    if (count == 0 && fits)
        return finish(console, result, format("equal: %zu bytes", image.size()));
    const ExitCode code =
        finish(console, result, format("different: %zu of %zu bytes", count, image.size()),
               Outcome::kDifferent);
    print_differences(console.display(), range.address, rom, image);
    return code;
}

ExitCode run_compare(Console& console, const Arguments& arguments, const ReadArguments& wanted)
{
    return run_with_result(console, arguments, [&](Result& result) {
        return compare(console, arguments, wanted, result);
    });
}

} // namespace

void add_read_command(Command& parent, Arguments& arguments, const char* name)
{
    Command& command =
        add_command(parent, name, "Copy the ROM, or a part of it, to a file, or show it",
                    "rom.bin --region whole");
    auto& wanted = set_run<ReadArguments>(command, arguments, run_read);
    command.file("FILE", &wanted.file,
                 "File to write; - is standard output; without: bytes are shown");
    add_range(command, wanted.range, "the first 32 KiB");
    add_all(command, arguments);
}

void add_compare_command(Command& parent, Arguments& arguments, const char* name)
{
    Command& command =
        add_command(parent, name, "Compare the ROM, or a part of it, with a file", "camera.bin");
    auto& wanted = set_run<ReadArguments>(command, arguments, run_compare);
    add_file(command, &wanted.file,
             "File, - is standard input; its trailing 0xFF bytes are not compared");
    add_range(command, wanted.range, "from its start");
    add_all(command, arguments);
}

} // namespace tool
