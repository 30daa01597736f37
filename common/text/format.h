// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace text {

/// printf into a string.
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

/// The columns that UTF-8 text takes on a terminal, each character one.
size_t columns_of(std::string_view text);

/// Filled with blanks up to a column.
std::string padded(std::string text, size_t columns);

/// The text with its words in lines of at most `width` columns, unless a word is longer. The first
/// line begins at column `indent`, where the caller has come already; blanks bring the others
/// there.
std::string wrapped(std::string_view text, size_t indent, size_t width);

} // namespace text
