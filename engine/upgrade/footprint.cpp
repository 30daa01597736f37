// SPDX-License-Identifier: Apache-2.0
#include "footprint.h"

#include <algorithm>

namespace nyxus::engine {

Footprint::Footprint(uint32_t size, Bytes before)
    : before_(before.begin(), before.begin() + std::min<ptrdiff_t>(std::ssize(before), size)),
      from_(before_),
      to_(before_)
{
    from_.resize(size, 0x00); // every bit may be either
    to_.resize(size, 0xFF);
}

void Footprint::begins(uint32_t address, Bytes bytes)
{
    next_ = std::min(address, size());
    std::ranges::copy(bytes.subspan(0, size() - next_), to_.begin() + next_);
}

void Footprint::settles(uint32_t count)
{
    const uint32_t end = next_ + std::min(count, size() - next_);
    std::copy(to_.begin() + next_, to_.begin() + end, from_.begin() + next_);
    next_ = end;
}

bool Footprint::fits(Bytes rom) const
{
    for (size_t i = 0; i < std::min(rom.size(), from_.size()); ++i) {
        if (((rom[i] ^ from_[i]) & (rom[i] ^ to_[i])) != 0)
            return false;
    }
    return true;
}

bool Footprint::differs_from_before(Bytes rom) const
{
    return !before_.empty() && !std::ranges::equal(rom.subspan(0, before_.size()), before_);
}

} // namespace nyxus::engine
