// SPDX-License-Identifier: Apache-2.0
#include "format.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

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

std::string printable(std::string text)
{
    unsigned char previous = 0;
    for (char& c : text) {
        const auto byte = static_cast<unsigned char>(c);
        // C2 80 to C2 9F are control characters too, in UTF-8.
        const bool control =
            byte < 0x20 || byte == 0x7F || (previous == 0xC2 && byte >= 0x80 && byte <= 0x9F);
        previous = byte;
        if (control)
            c = '?';
    }
    return text;
}

} // namespace text
