// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace fuzz {

/// The fuzzer's bytes, taken from the front. Behind their end all numbers are 0.
class Input {
public:
    Input(const uint8_t* data, size_t size) : rest_(data, size) {}

    bool empty() const { return rest_.empty(); }

    uint8_t byte()
    {
        if (rest_.empty())
            return 0;
        const uint8_t value = rest_.front();
        rest_ = rest_.subspan(1);
        return value;
    }

    /// Little-endian.
    uint16_t word()
    {
        const uint8_t low = byte();
        return static_cast<uint16_t>(low | byte() << 8);
    }

    /// At most so many bytes, in memory of exactly their size.
    std::vector<uint8_t> bytes(size_t count)
    {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }

    std::vector<uint8_t> rest() { return bytes(rest_.size()); }

private:
    std::span<const uint8_t> rest_;
};

} // namespace fuzz
