// SPDX-License-Identifier: Apache-2.0
#include "text/format.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace text {

std::string format(const char* pattern, ...)
{
    char* text = nullptr;
    va_list values;
    va_start(values, pattern);
    const int size = vasprintf(&text, pattern, values);
    va_end(values);
    if (size < 0)
        return {};
    std::string result(text, static_cast<size_t>(size));
    std::free(text);
    return result;
}

size_t columns_of(std::string_view text)
{
    const auto begins_character = [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    };
    return static_cast<size_t>(std::ranges::count_if(text, begins_character));
}

std::string padded(std::string text, size_t columns)
{
    const size_t used = columns_of(text);
    return used < columns ? text.append(columns - used, ' ') : text;
}

std::string wrapped(std::string_view text, size_t indent, size_t width)
{
    std::istringstream words{std::string(text)};
    std::string lines;
    size_t column = indent;
    for (std::string word; words >> word;) {
        const size_t columns = columns_of(word);
        const bool begins = column == indent;
        if (!begins && column + 1 + columns > width) {
            lines += "\n" + std::string(indent, ' ');
            column = indent + columns;
        } else {
            lines += begins ? "" : " ";
            column += columns + (begins ? 0 : 1);
        }
        lines += word;
    }
    return lines;
}

} // namespace text
