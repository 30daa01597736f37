// SPDX-License-Identifier: Apache-2.0
// Where the parts of an MFi image lie. Whatever its bytes say, what is returned lies in it, behind
// its header.
#pragma once

#include <nyxus/engine/images.hpp>

namespace nyxus::engine {

constexpr size_t kMfiHeaderSize = 0x20;
constexpr size_t kDescriptorHead = 2; ///< before its text

/// A part by its offset in the image.
struct MfiRange {
    size_t offset = 0;
    size_t size = 0;
};

/// The serial-number descriptor, with its head.
std::optional<MfiRange> serial_descriptor(Bytes image);
/// Text of the serial-number record, found as the library finds it.
std::optional<MfiRange> serial_record(Bytes image);

/// Nothing unless its header leads to a descriptor.
std::optional<MfiFacts> find_mfi(Bytes image);
/// Where it would lie in these contents of a ROM.
Bytes mfi_area(Bytes rom);

} // namespace nyxus::engine
