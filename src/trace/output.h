// SPDX-License-Identifier: Apache-2.0
// Where everything goes that the library prints, and who hears of progress: the callbacks that are
// set, else standard output and standard error.
#pragma once

#include <nyxus/extensions.h>

#include "line_text.h"

namespace nyxus {

/// While it lives, what this thread prints and transfers belongs to the device; nullptr changes
/// nothing.
class DeviceScope {
public:
    explicit DeviceScope(NyDevice* device) : outer_(current_)
    {
        if (device != nullptr)
            current_ = device;
    }
    ~DeviceScope() { current_ = outer_; }
    DeviceScope(const DeviceScope&) = delete;
    DeviceScope& operator=(const DeviceScope&) = delete;

    static NyDevice* current() { return current_; }

private:
    static inline __thread NyDevice* current_;
    NyDevice* outer_;
};

/// Prints a text of a kind (nyxus/extensions.h), NUL-terminated. Inside a callback nothing.
void put(uint32_t kind, const char* text, size_t length);
inline void put(uint32_t kind, const LineText& line)
{
    put(kind, line.text(), line.length());
}

/// Whether a callback receives what this thread prints.
bool has_line_callback();

/// Tells the progress callback, if there is one.
void report_progress(uint64_t done, uint64_t total);

/// Whether this thread is inside a callback of the host.
bool is_in_callback();

} // namespace nyxus
