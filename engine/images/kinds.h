// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/images.hpp>

namespace nyxus::engine {

/// What an image says of itself; nothing for one of an unknown kind.
std::optional<ImageKind> kind_of(Bytes image);

} // namespace nyxus::engine
