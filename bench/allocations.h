// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace bench {

/// Calls of malloc, calloc and realloc so far, those of operator new among them.
uint64_t allocations();

} // namespace bench
