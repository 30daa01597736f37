// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/cpp/result.hpp>

namespace nyxus::engine {

/// Where the firmware ends in the contents of a ROM; see Plan::kept.
uint32_t end_of_firmware(Bytes rom);

} // namespace nyxus::engine
