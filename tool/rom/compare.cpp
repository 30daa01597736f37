// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "rom/programming.h"
#include "session/follower.h"
#include "session/result.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace tool {

namespace {

void print_difference(Display& display, const engine::Difference& difference,
                      const std::vector<uint8_t>& rom, const std::vector<uint8_t>& image)
{
    for (const size_t offset : difference.first_offsets)
        display.say(format("  0x%04zX: ROM %02X, file %02X", offset, rom[offset], image[offset]));
    if (difference.count > difference.first_offsets.size())
        display.say("  ...");
}

ExitCode compare(Console& console, const Arguments& arguments, Result& result)
{
    constexpr uint32_t kLargestRom = 0x10000;
    std::vector<uint8_t> image = value_of(engine::load_image(arguments.file, kLargestRom));
    Camera camera = open_with_rom(console, arguments);
    result.camera = label_of(camera);
    promise_result(console, result);
    // A file that does not fit is different; the part that does still tells where.
    const bool fits = image.size() <= camera.rom_size();
    if (!fits) {
        console.display().warn(format("nyxus: the file has %zu bytes, the ROM only %u",
                                      image.size(), camera.rom_size()));
        image.resize(camera.rom_size());
    }
    Follower follower(console, arguments);
    const auto rom = value_of(engine::read_back(camera, 0, image, follower.caller()));

    const engine::Difference difference = engine::find_difference(rom, image);
    const bool equal = difference.count == 0 && fits;
    result.message = equal ? format("equal: %zu bytes", image.size())
                           : format("different: %zu of %zu bytes", difference.count, image.size());
    result.outcome = equal ? Outcome::kDone : Outcome::kDifferent;
    console.display().say(result.message);
    print_difference(console.display(), difference, rom, image);
    return equal ? kExitOk : kExitMismatch;
}

} // namespace

ExitCode run_compare(Console& console, const Arguments& arguments)
{
    return run_with_result(console, arguments,
                           [&](Result& result) { return compare(console, arguments, result); });
}

} // namespace tool
