// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sim {

/// Frames that follow each other and begin again, as they stand in a file.
struct Film {
    std::vector<uint8_t> bytes;
    std::vector<size_t> starts; ///< of the frames, the first at 0

    std::span<const uint8_t> frame(uint32_t number) const
    {
        const size_t place = number % starts.size();
        const size_t end = place + 1 < starts.size() ? starts[place + 1] : bytes.size();
        return std::span(bytes).subspan(starts[place], end - starts[place]);
    }
};

} // namespace sim
