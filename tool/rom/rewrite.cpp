// SPDX-License-Identifier: Apache-2.0
// Writing and erasing parts of the ROM.
#include "rom/rewrite.h"

#include "commands.h"
#include "session/choose.h"
#include "session/follower.h"
#include "session/whole_file.h"
#include "terminal/text.h"

#include <algorithm>

namespace tool {

namespace {

struct WriteArguments {
    std::string file;
    RangeArguments range;
};

ExitCode run_write(Console& console, const Arguments& arguments, const WriteArguments& wanted)
{
    const std::vector<uint8_t> bytes = read_file(wanted.file, engine::kRomBlock, "the ROM");
    const auto size = static_cast<uint32_t>(bytes.size());
    const auto patch = [&](std::vector<uint8_t>& rom) {
        RomRange range = range_of(wanted.range, static_cast<uint32_t>(rom.size()), size);
        if (size > range.bytes) {
            throw Failure(kExitUsage, format("the file has %u bytes, that part of the ROM %u", size,
                                             range.bytes));
        }
        std::ranges::copy(bytes, rom.begin() + range.address);
    };
    return rewrite(console, arguments, "write", patch,
                   format("wrote %u bytes into the ROM, read back and equal", size));
}

} // namespace

ExitCode rewrite(Console& console, const Arguments& arguments, const std::string& operation,
                 const std::function<void(std::vector<uint8_t>& rom)>& patch,
                 const std::string& done)
{
    Programming how;
    how.keep = to_text(engine::Keep::kWhole);
    how.operation = operation;
    const auto patched = [&](Camera& camera) {
        Follower follower(console);
        std::vector<uint8_t> rom = value_of(
            engine::read_rom_twice(camera, 0, engine::replaced_bytes(camera), follower.caller()));
        patch(rom);
        return engine::Images{.firmware = value_of(engine::Firmware::exactly(std::move(rom))),
                              .patched = true};
    };
    if (arguments.dry_run) {
        Camera camera = open_with_rom(console, arguments);
        const engine::Images images = patched(camera);
        const engine::UpgradeOptions options = upgrade_options(arguments, how);
        const std::vector<uint8_t> before = read_before(console, camera, options);
        print_plan(console, arguments, camera, images,
                   plan_upgrade(camera, images, options, before));
        return kExitOk;
    }
    return run_with_result(console, arguments, [&](Result& result) {
        Camera camera = introduce(console, result, open_with_rom(console, arguments));
        const engine::Images images = patched(camera);
        const bool changed = program(console, camera, arguments, how, images, result);
        return finish(console, result,
                      changed ? done : "nothing to do: the ROM holds that already");
    });
}

void add_write_command(Command& parent, Arguments& arguments)
{
    Command& command =
        add_command(parent, "write", "Write a file into the ROM and leave the rest as it is",
                    "notes.bin --region reserved");
    auto& wanted = set_run<WriteArguments>(command, arguments, run_write);
    add_file(command, &wanted.file, "File to write; - is standard input");
    add_range(command, wanted.range, "from its start");
    add_no_backup(command, arguments);
    add_dry_run(command, arguments);
}

} // namespace tool
