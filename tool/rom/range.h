// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/command_line.h"
#include "session/camera.h"

namespace tool {

/// A part of the ROM.
struct RomRange {
    uint32_t address;
    uint32_t bytes;
};

/// A part that has a name.
struct Region {
    const char* name;
    RomRange range;
};
/// Those that every ROM has room for, in their order.
std::span<const Region> regions();

/// A part of the ROM as the command line names it.
struct RangeArguments {
    std::optional<uint32_t> address;
    uint32_t bytes = 0;
    std::string region; ///< "whole": all that the camera can reach

    bool is_given() const { return address || bytes != 0 || !region.empty(); }
};
void add_range(Command& command, RangeArguments& wanted, const std::string& otherwise);

/// What it means for a ROM of which `reachable` bytes can be had; `usual`: where nothing is said. A
/// Failure when it reaches beyond that.
RomRange range_of(const RangeArguments& wanted, uint32_t reachable, uint32_t usual);

} // namespace tool
