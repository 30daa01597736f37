// SPDX-License-Identifier: Apache-2.0
// Gated lines on standard error.
#pragma once

#include <nyxus/trace.h>

namespace nyxus {

inline bool traces(uint32_t mask)
{
    return (ny_trace_param & mask) == mask;
}

/// Time stamp, function name, text.
void trace_line(const char* function, const char* format, ...)
    __attribute__((format(printf, 2, 3), cold));

/// Time stamp, function name and device, text.
void trace_line(const char* function, const NyDevice* device, const char* format, ...)
    __attribute__((format(printf, 3, 4), cold));

/// Text alone.
void trace_bare(const char* format, ...) __attribute__((format(printf, 1, 2), cold));

} // namespace nyxus

#define NY_TRACE(mask, ...)                           \
    do {                                              \
        if (nyxus::traces(mask))                      \
            nyxus::trace_line(__func__, __VA_ARGS__); \
    } while (false)
/// `function` is the exported function that a step belongs to.
#define NY_TRACE_DEV_AS(function, mask, ...)                   \
    do {                                                       \
        if (nyxus::traces(mask))                               \
            nyxus::trace_line(function, pDevObj, __VA_ARGS__); \
    } while (false)
#define NY_TRACE_DEV(mask, ...) NY_TRACE_DEV_AS(__func__, mask, __VA_ARGS__)
#define NY_TRACE_BARE(mask, ...)            \
    do {                                    \
        if (nyxus::traces(mask))            \
            nyxus::trace_bare(__VA_ARGS__); \
    } while (false)
