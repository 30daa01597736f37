// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <utility>
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

    /// When a ROM is ready that would be so at `undisturbed_us`.
    uint64_t ready_us(uint64_t undisturbed_us) const
    {
        return stuck_us == kForever ? kForever : undisturbed_us + stuck_us;
    }
};

/// Asked at each access that the ROM would obey, under the owner's lock.
using RomFaultHook = std::function<RomFault(const RomAccess&)>;

/// The cells of a ROM that is programmed in pages: asks what goes wrong with an access, and knows
/// what the write under way has changed.
class RomCells {
public:
    enum class Programming { kReplaces, kClearsBits };

    RomCells(std::span<uint8_t> cells, size_t page_bytes, Programming programming)
        : cells_(cells), page_bytes_(page_bytes), programming_(programming)
    {
    }

    void set_fault(RomFaultHook hook) { fault_ = std::move(hook); }
    RomFault ask(const RomAccess& access) const { return fault_ ? fault_(access) : RomFault{}; }

    size_t size() const { return cells_.size(); }
    /// Addresses beyond the last cell begin again at the first.
    uint8_t operator[](size_t address) const { return cells_[address % cells_.size()]; }

    /// The next changes are those of a new write, of which nothing is done yet.
    void begin_write()
    {
        changes_.clear();
        steps_.clear();
    }
    void erase(size_t first, size_t end);
    /// One page, a step of the write; an address that reaches the end of its page wraps to its
    /// start.
    RomFault program(uint32_t address, std::span<const uint8_t> bytes);
    struct Pages {
        uint32_t count = 0;
        RomFault worst;
    };
    /// A write of page after page, until the power goes.
    Pages program_pages(uint32_t address, std::span<const uint8_t> bytes);

    /// The power goes in the middle of a step, with `done` steps before it, or of the last one: the
    /// first half of its changes remains, the cells behind them are as they were.
    void cut_write(uint64_t done);
    static uint64_t steps_in(uint64_t time_us, uint64_t step_us)
    {
        return step_us == 0 ? UINT64_MAX : time_us / step_us;
    }

private:
    struct Change {
        uint32_t cell;
        uint8_t old;
    };
    void set(size_t cell, uint8_t value);

    std::span<uint8_t> cells_;
    size_t page_bytes_;
    Programming programming_;
    std::vector<Change> changes_;
    std::vector<size_t> steps_; ///< where each begins in the changes
    RomFaultHook fault_;
};

} // namespace sim
