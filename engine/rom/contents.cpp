// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine/rom.hpp>

namespace nyxus::engine {

Difference find_difference(Bytes a, Bytes b)
{
    Difference difference;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        if (a[i] == b[i])
            continue;
        ++difference.count;
        if (difference.first_offsets.size() < Difference::kMostOffsets)
            difference.first_offsets.push_back(i);
    }
    return difference;
}

bool is_blank(Bytes contents)
{
    return std::all_of(contents.begin(), contents.end(), [](uint8_t byte) { return byte == 0xFF; });
}

} // namespace nyxus::engine
