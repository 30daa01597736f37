// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sim {

/// Frames that follow each other and begin again, as they stand in a file.
struct Film {
    enum class Kind : uint8_t { kYuyv, kJpeg, kH264 };
    Kind kind = Kind::kYuyv;
    uint32_t width = 0; ///< pixels; of H.264 it is not known
    uint32_t height = 0;
    std::vector<uint8_t> bytes;
    std::vector<size_t> starts; ///< of the frames, the first at 0

    size_t place_of(uint32_t number) const { return number % starts.size(); }
    std::span<const uint8_t> frame(uint32_t number) const
    {
        const size_t place = place_of(number);
        const size_t end = place + 1 < starts.size() ? starts[place + 1] : bytes.size();
        return std::span(bytes).subspan(starts[place], end - starts[place]);
    }
};

} // namespace sim
