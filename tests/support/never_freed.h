// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sanitizer/lsan_interface.h>

// Null without AddressSanitizer.
#pragma weak __lsan_disable
#pragma weak __lsan_enable

/// What an early failure leaves behind is meant to stay: callers may still point to it.
class NeverFreed {
public:
    NeverFreed()
    {
        if (__lsan_disable != nullptr)
            __lsan_disable();
    }
    ~NeverFreed()
    {
        if (__lsan_enable != nullptr)
            __lsan_enable();
    }
    NeverFreed(const NeverFreed&) = delete;
    NeverFreed& operator=(const NeverFreed&) = delete;
};
