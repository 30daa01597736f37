// SPDX-License-Identifier: Apache-2.0
#include "rom_fault.h"

namespace sim {

// Backwards, because a write that wraps may have changed a cell twice.
void UnfinishedWrite::halve(std::span<uint8_t> rom)
{
    const size_t done = cells_.size() / 2;
    for (size_t i = cells_.size(); i-- > done;)
        rom[cells_[i].cell] = cells_[i].old;
    cells_.clear();
}

} // namespace sim
