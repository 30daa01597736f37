// SPDX-License-Identifier: Apache-2.0
#include "rom/range.h"

#include "terminal/failure.h"
#include "terminal/text.h"

#include <nyxus/image.h>
#include <algorithm>
#include <nyxus/engine/images.hpp>

namespace tool {

namespace {

constexpr uint32_t kLargestPart = 0x1000000;
constexpr uint32_t kHeaderBytes = engine::Firmware::kHeaderBytes;

constexpr Region kRegions[] = {
    {"header", {0, kHeaderBytes}},
    {"body", {kHeaderBytes, NYXUS_MFI_ROM_ADDR - kHeaderBytes}},
    {"mfi", {NYXUS_MFI_ROM_ADDR, NYXUS_MFI_BIN_CAPACITY}},
    {"reserved", {SPI_RESERVED_ADDR, 256}},
};

} // namespace

std::span<const Region> regions()
{
    return kRegions;
}

void add_range(Command& command, RangeArguments& wanted, const std::string& otherwise)
{
    command_line::Words names;
    for (const Region& region : kRegions)
        names.emplace_back(region.name);
    names.emplace_back("whole");
    const Option& region = add_choice(command, "--region", &wanted.region, names,
                                      "Part of the ROM: " + listed(names) + " [" + otherwise + "]")
                               .shown_as("NAME");
    command.number("--at", &wanted.address, {0, kLargestPart - 1}, "Address of its first byte")
        .shown_as("ADDRESS")
        .excluding(region);
    command.number("--size", &wanted.bytes, {1, kLargestPart}, "Its bytes")
        .shown_as("BYTES")
        .excluding(region);
}

RomRange range_of(const RangeArguments& wanted, uint32_t reachable, uint32_t usual)
{
    RomRange range = {wanted.address.value_or(0), wanted.bytes};
    const auto* region = std::ranges::find(kRegions, wanted.region, &Region::name);
    if (region != std::end(kRegions))
        range = region->range;
    if (wanted.region == "whole")
        range.bytes = reachable;
    if (range.bytes == 0 && range.address < reachable)
        range.bytes = std::min(usual, reachable - range.address);
    if (range.bytes == 0 || range.address >= reachable || range.bytes > reachable - range.address) {
        throw Failure(
            kExitUsage,
            format("only the first %u bytes of the ROM can be reached; choose a part of them",
                   reachable));
    }
    return range;
}

} // namespace tool
