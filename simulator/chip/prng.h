// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace sim {

/// SplitMix64: the same bytes from the same seed on every machine.
class Prng {
public:
    explicit Prng(uint64_t seed) : state_(seed) {}

    uint64_t next()
    {
        state_ += 0x9E3779B97F4A7C15;
        uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
        return mixed ^ (mixed >> 31);
    }

    uint8_t next_byte() { return static_cast<uint8_t>(next() >> 56); }

private:
    uint64_t state_;
};

} // namespace sim
