// SPDX-License-Identifier: Apache-2.0
// Text that came from a camera, a file or a command line, safe for a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace text {

/// Control characters, and bytes that are no UTF-8, become '?'.
std::string printable(std::string_view text);
/// The same, but the ends of lines stay.
std::string printable_lines(std::string_view text);
/// The same for a field of fixed size, which may lack its terminator.
std::string printable_field(const char* field, size_t size);
/// Whether it is ASCII without control characters.
bool is_plain(std::string_view text);
/// 'rom.bin', as messages name what somebody has written.
std::string in_quotes(std::string_view text);

} // namespace text
