// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace sim {

/// One access to the external ROM's cells or to its status register, as its bus carries it.
struct RomAccess {
    enum class Kind { kRead, kProgram, kErase, kWriteStatus };
    Kind kind;
    uint32_t address = 0;           ///< of the first cell
    uint32_t bytes = 0;             ///< cells
    uint8_t status = 0;             ///< kWriteStatus: the new one
    std::span<uint8_t> answer = {}; ///< kRead: what the host will see; may be altered
};

/// What goes wrong with it. A read has no fault beyond its altered answer and the power cut.
struct RomFault {
    bool ignored = false;   ///< takes its time, reports nothing, changes nothing
    bool power_cut = false; ///< in the middle of it
    uint64_t stuck_us = 0;  ///< busy for so much longer; kForever: until the power goes
    static constexpr uint64_t kForever = UINT64_MAX;

    /// When a ROM is ready that would be so at `undisturbed_us`.
    uint64_t ready_us(uint64_t undisturbed_us) const
    {
        return stuck_us == kForever ? kForever : undisturbed_us + stuck_us;
    }
};

/// Asked at each access that the ROM would obey, under the owner's lock.
using RomFaultHook = std::function<RomFault(const RomAccess&)>;

} // namespace sim
