// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

/// first, first + 1, and so on.
inline Bytes counting(size_t size, uint8_t first = 1)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

inline bool all_erased(const Bytes& bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0xFF; });
}
