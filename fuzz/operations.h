// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/nyxus.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

/// The numbers that a call passes.
struct Numbers {
    uint16_t a;
    uint16_t b;
    uint8_t c;

    bool odd() const { return (c & 1) != 0; }
    uint32_t wide() const { return static_cast<uint32_t>(c) << 16 | a; }
};

/// How a call is written in an input: the operation's position in the list, and the numbers.
inline constexpr size_t kCallBytes = 6;

/// A call of one public function. Each buffer has exactly the size that its header demands, so that
/// AddressSanitizer sees a byte too many.
struct Operation {
    const char* name;
    void (*run)(NyDevice* device, const Numbers& numbers);
};

std::span<const Operation> operations();

} // namespace fuzz
