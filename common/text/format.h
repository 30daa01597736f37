// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace text {

/// printf into a string.
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

/// Text that came from a camera or a file, safe to print: control characters become '?'.
std::string printable(std::string text);

} // namespace text
