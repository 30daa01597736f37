// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/images.hpp>

namespace nyxus::engine {

constexpr uint32_t kLargestPart = 0x1000000; // what 24 bits address

/// kWrongImage for an image without bytes, or with more than the capacity. `kind` is what it would
/// be: "a firmware image".
Status check_image_size(const std::string& name, size_t size, uint32_t capacity, const char* kind);

/// All bytes of a plain file of such a size.
Result<std::vector<uint8_t>> read_image_file(const std::string& path, uint32_t capacity,
                                             const char* kind);

} // namespace nyxus::engine
