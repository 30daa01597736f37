// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/cpp/result.hpp>

#include <vector>

namespace nyxus::engine {

/// What a run has left in a ROM, as far as it got: what is certain, and what is on its way from one
/// content to another.
class Footprint {
public:
    /// Of the first `size` bytes; `before` is what they held, or empty where nobody has looked.
    Footprint(uint32_t size, Bytes before);

    /// From now on these bytes may be there, each bit of them, or not yet.
    void begins(uint32_t address, Bytes bytes);
    /// So many more of them are.
    void settles(uint32_t count);

    /// Whether this run may have left a ROM like this.
    bool fits(Bytes rom) const;
    /// Whether the ROM is known to hold something else than before.
    bool differs_from_before(Bytes rom) const;
    uint32_t size() const { return static_cast<uint32_t>(from_.size()); }

private:
    std::vector<uint8_t> before_;
    std::vector<uint8_t> from_;
    std::vector<uint8_t> to_;
    uint32_t next_ = 0; ///< the first byte that is on its way
};

} // namespace nyxus::engine
