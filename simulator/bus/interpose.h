// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dlfcn.h>

namespace sim {

/// The function of that name that the program would have without us.
template <typename Function>
Function next_function(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace sim
