// SPDX-License-Identifier: Apache-2.0
// Every exported function that returns a status, called with arguments made by their types.
#pragma once

#include <nyxus/nyxus.h>

#include <cstdint>
#include <functional>
#include <vector>

/// What the caller passes.
struct Host {
    NyDevice* device;
    int null_at = -1; ///< position of the argument that is NULL instead
    uint64_t number = 1;
};

struct Function {
    const char* name;
    std::function<int32_t(const Host&)> call;
    std::vector<int> pointers; ///< positions of the arguments that may be NULL
    bool has_numbers;
    bool uses_camera;
};

/// Pointers that are not NULL lead to memory of zeros.
extern const std::vector<Function> all_functions;
