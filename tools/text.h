// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace tool {

/// printf into a string.
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

/// Filled with blanks up to a column.
std::string padded(std::string text, size_t columns);

/// Text that came from a camera or a file, safe to print: control characters become '?'.
std::string printable(std::string text);
/// The same for a fixed-size field that may lack its terminator.
std::string printable_field(const char* field, size_t size);

} // namespace tool
