// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/// What a 16-bit address reaches. A larger ROM is a row of such blocks, selected one by one.
constexpr uint32_t kBlockBytes = 0x10000;
