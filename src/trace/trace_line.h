// SPDX-License-Identifier: Apache-2.0
// Gated lines. The names in them are those of exported functions: a helper passes the name of the
// function that it works for.
#pragma once

#include <nyxus/trace.h>

#include "output.h"

namespace nyxus {

inline bool traces(uint32_t mask)
{
    return (ny_trace_param & mask) == mask;
}

/// Time stamp, function name, text. `kind` is the mask that gates the line.
void trace_line(uint32_t kind, const char* function, const char* format, ...)
    __attribute__((format(printf, 3, 4), cold));

/// Time stamp, function name and device, text.
void trace_line(uint32_t kind, const char* function, const NyDevice* device, const char* format,
                ...) __attribute__((format(printf, 4, 5), cold));

/// Text alone.
void trace_bare(uint32_t kind, const char* format, ...) __attribute__((format(printf, 2, 3), cold));

} // namespace nyxus

#define NY_TRACE(mask, ...)                                 \
    do {                                                    \
        if (nyxus::traces(mask))                            \
            nyxus::trace_line(mask, __func__, __VA_ARGS__); \
    } while (false)
/// `function` is the exported function that a step belongs to.
#define NY_TRACE_DEV_AS(function, mask, ...)                         \
    do {                                                             \
        if (nyxus::traces(mask))                                     \
            nyxus::trace_line(mask, function, pDevObj, __VA_ARGS__); \
    } while (false)
#define NY_TRACE_DEV(mask, ...) NY_TRACE_DEV_AS(__func__, mask, __VA_ARGS__)
#define NY_TRACE_BARE(mask, ...)                  \
    do {                                          \
        if (nyxus::traces(mask))                  \
            nyxus::trace_bare(mask, __VA_ARGS__); \
    } while (false)
