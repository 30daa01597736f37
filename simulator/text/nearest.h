// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace sim {

/// The name that was probably meant; nullopt when none is near.
std::optional<std::string_view> nearest_name(std::string_view name,
                                             std::span<const std::string_view> names);

} // namespace sim
