// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

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
};

/// Asked at each access that the ROM would obey, under the owner's lock.
using RomFaultHook = std::function<RomFault(const RomAccess&)>;

/// The cells that the write under way has changed, in their order.
class UnfinishedWrite {
public:
    void begin() { cells_.clear(); }
    void note(size_t cell, uint8_t old) { cells_.push_back({static_cast<uint32_t>(cell), old}); }
    /// The power goes: the first half of the cells have their new contents, the others the old.
    void halve(std::span<uint8_t> rom);

private:
    struct Cell {
        uint32_t cell;
        uint8_t old;
    };
    std::vector<Cell> cells_;
};

} // namespace sim
