// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "rom/programming.h"
#include "session/follower.h"
#include "session/result.h"
#include "session/whole_file.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <nyxus/image.h>
#include <algorithm>

namespace tool {

namespace {

uint32_t dump_size(const Camera& camera, const Arguments& arguments)
{
    constexpr uint32_t kUsualSize = NYXUS_FW_BIN_CAPACITY;
    const uint32_t rom_size = camera.rom_size();
    if (arguments.size_bytes == 0)
        return std::min(rom_size, kUsualSize);
    if (arguments.size_bytes > rom_size) {
        throw Failure(kExitUsage,
                      format("the ROM has only %u bytes; choose a smaller --size", rom_size));
    }
    return arguments.size_bytes;
}

} // namespace

ExitCode run_dump(Console& console, const Arguments& arguments)
{
    return run_with_result(console, arguments, [&](Result& result) {
        refuse_impossible_target(arguments.file);
        Camera camera = open_with_rom(console, arguments);
        result.camera = label_of(camera);
        promise_result(console, result);
        const uint32_t size = dump_size(camera, arguments);
        Follower follower(console, arguments);
        const auto contents = value_of(engine::read_rom_twice(camera, 0, size, follower.caller()));
        write_file(arguments.file, contents);
        result.message = format("wrote %u bytes to ", size) + in_quotes(arguments.file);
        console.display().say(result.message);
        return kExitOk;
    });
}

} // namespace tool
