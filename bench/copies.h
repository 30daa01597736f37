// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace bench {

/// Bytes copied by memcpy, by who asked for it.
struct Copies {
    uint64_t libuvc = 0;
    uint64_t library = 0;

    Copies& operator+=(const Copies& more)
    {
        libuvc += more.libuvc;
        library += more.library;
        return *this;
    }
};

/// Counts from 0.
void count_copies();
Copies copies();

} // namespace bench
