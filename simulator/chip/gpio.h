// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

namespace sim {

inline constexpr unsigned kGpioCount = 16;

/// The pin is an output; otherwise what hangs on it decides its level.
bool gpio_driven(std::span<const uint8_t, 0x10000> xdata, unsigned index);

/// Level of a pin as the registers drive it. A pin that is not driven is pulled low.
bool gpio_level(std::span<const uint8_t, 0x10000> xdata, unsigned index);

} // namespace sim
