// SPDX-License-Identifier: Apache-2.0
#include "rom_cells.h"

#include <algorithm>

namespace sim {

void RomCells::set(size_t cell, uint8_t value)
{
    changes_.push_back({static_cast<uint32_t>(cell), cells_[cell]});
    cells_[cell] = value;
}

void RomCells::erase(size_t first, size_t end)
{
    steps_.push_back(changes_.size());
    for (size_t cell = first; cell < end; ++cell)
        set(cell, 0xFF);
}

RomFault RomCells::program(uint32_t address, std::span<const uint8_t> bytes)
{
    const RomFault fault = ask({.kind = RomAccess::Kind::kProgram,
                                .address = address,
                                .bytes = static_cast<uint32_t>(bytes.size())});
    steps_.push_back(changes_.size());
    if (fault.ignored)
        return fault;
    const size_t page = address % cells_.size() / page_bytes_ * page_bytes_;
    size_t offset = address % page_bytes_;
    for (const uint8_t byte : bytes) {
        const size_t cell = page + offset++ % page_bytes_;
        const bool replaces = programming_ == Programming::kReplaces;
        set(cell, replaces ? byte : static_cast<uint8_t>(cells_[cell] & byte));
    }
    return fault;
}

RomCells::Pages RomCells::program_pages(uint32_t address, std::span<const uint8_t> bytes)
{
    begin_write();
    Pages pages;
    while (!bytes.empty() && !pages.worst.power_cut) {
        const size_t room = page_bytes_ - address % page_bytes_;
        const auto page = bytes.first(std::min(room, bytes.size()));
        const RomFault fault = program(address, page);
        pages.worst.power_cut = fault.power_cut;
        pages.worst.stuck_us = std::max(pages.worst.stuck_us, fault.stuck_us);
        address += static_cast<uint32_t>(page.size());
        bytes = bytes.subspan(page.size());
        ++pages.count;
    }
    return pages;
}

// Backwards, because a write that wraps may have changed a cell twice.
void RomCells::cut_write(uint64_t done)
{
    if (steps_.empty())
        return;
    const size_t step = std::min<uint64_t>(done, steps_.size() - 1);
    const size_t end = step + 1 < steps_.size() ? steps_[step + 1] : changes_.size();
    const size_t kept = steps_[step] + (end - steps_[step]) / 2;
    for (size_t i = changes_.size(); i-- > kept;)
        cells_[changes_[i].cell] = changes_[i].old;
    begin_write();
}

} // namespace sim
