// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "rom/rewrite.h"
#include "session/choose.h"
#include "session/dry_run.h"
#include "session/follower.h"

#include <algorithm>
#include <nyxus/engine/upgrade.hpp>

namespace tool {

namespace {

struct EraseArguments {
    bool yes = false;
    RangeArguments range;
};

void confirm(Console& console, const std::string& what, bool yes)
{
    if (yes)
        return;
    console.drain();
    const Unwatched unwatched(console);
    if (!console.display().confirm("Erase " + what + "?")) {
        throw Failure(kExitNotConfirmed,
                      "not confirmed, nothing was erased; '--yes' erases unasked");
    }
}

ExitCode erase(Console& console, const Arguments& arguments, Camera& camera, Result& result)
{
    using engine::Phase;
    Follower follower(console);
    follower.expect({Phase::kReading, Phase::kReadingAgain, Phase::kErasing, Phase::kVerifying},
                    erased_bytes(camera));
    result.report =
        engine::erase(camera, engine::Backups(), follower.caller(), !arguments.skip_backup);
    if (!result.report.status)
        throw failure_of(result.report);
    return finish(console, result, "erased; after a reset the camera runs its mask ROM");
}

void print_erase_plan(Console& console, const Arguments& arguments, Camera& camera)
{
    Cost cost = rom_unlock(camera) + rom_erase(camera) + rom_lock(camera) +
                whole_read(camera, erased_bytes(camera));
    if (!arguments.skip_backup)
        cost += whole_read_twice(camera, engine::replaced_bytes(camera));
    Value::List steps{Members{{"step", "erase"}}, Members{{"step", "read back"}}};
    if (!arguments.skip_backup)
        steps.insert(steps.begin(), Members{{"step", "back up"}});
    print_dry_run(console, arguments, camera, "erase the firmware of " + camera.name(),
                  {{"steps", steps}}, cost, kFlashTime);
}

ExitCode run_erase(Console& console, const Arguments& arguments, const EraseArguments& wanted)
{
    if (wanted.range.is_given() && wanted.range.region != "whole") {
        if (!arguments.dry_run)
            confirm(console, "that part of the ROM", wanted.yes);
        const auto blank = [&](std::vector<uint8_t>& rom) {
            const auto size = static_cast<uint32_t>(rom.size());
            const RomRange range = range_of(wanted.range, size, size);
            std::fill_n(rom.begin() + range.address, range.bytes, 0xFF);
        };
        return rewrite(console, arguments, "erase", blank, "erased that part of the ROM");
    }
    if (arguments.dry_run) {
        Camera camera = open_with_rom(console, arguments);
        require(engine::check_erasable(camera));
        print_erase_plan(console, arguments, camera);
        return kExitOk;
    }
    return run_with_result(console, arguments, [&](Result& result) {
        Camera camera = introduce(console, result, open_with_rom(console, arguments));
        require(engine::check_erasable(camera));
        confirm(console, "the firmware of " + camera.name(), wanted.yes);
        return erase(console, arguments, camera, result);
    });
}

} // namespace

void add_erase_command(Command& parent, Arguments& arguments)
{
    Command& command =
        add_command(parent, "erase", "Erase a flash, or a part of the ROM", "-c A0001234 --yes");
    auto& wanted = set_run<EraseArguments>(command, arguments, run_erase);
    add_range(command, wanted.range, "whole");
    command.flag("-y,--yes", &wanted.yes, "Do not ask");
    add_no_backup(command, arguments);
    add_dry_run(command, arguments);
}

} // namespace tool
