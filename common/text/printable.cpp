// SPDX-License-Identifier: Apache-2.0
#include "text/printable.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace text {

namespace {

uint8_t byte_at(std::string_view text, size_t place)
{
    return place < text.size() ? static_cast<uint8_t>(text[place]) : 0;
}

/// Bytes of the UTF-8 character that the text begins with; 0 for none.
size_t character_bytes(std::string_view text)
{
    struct Row {
        uint8_t first, last;               ///< of the first byte
        uint8_t least_second, most_second; ///< no overlong forms, surrogates and C1 controls
        size_t bytes;
    };
    constexpr Row kRows[] = {
        {0xC2, 0xC2, 0xA0, 0xBF, 2}, {0xC3, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
        {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
        {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
    };
    const uint8_t first = byte_at(text, 0);
    if (first < 0x80)
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    const auto* const row = std::ranges::find_if(
        kRows, [&](const Row& each) { return first >= each.first && first <= each.last; });
    if (row == std::end(kRows) || byte_at(text, 1) < row->least_second ||
        byte_at(text, 1) > row->most_second)
        return 0;
    for (size_t i = 2; i < row->bytes; ++i) {
        if ((byte_at(text, i) & 0xC0) != 0x80)
            return 0;
    }
    return row->bytes;
}

std::string printable_but(std::string_view text, char kept)
{
    std::string result;
    while (!text.empty()) {
        const size_t bytes = text.front() == kept ? 1 : character_bytes(text);
        result += bytes == 0 ? "?" : text.substr(0, bytes);
        text.remove_prefix(std::max<size_t>(bytes, 1));
    }
    return result;
}

} // namespace

std::string printable(std::string_view text)
{
    return printable_but(text, ' ');
}

std::string printable_lines(std::string_view text)
{
    return printable_but(text, '\n');
}

std::string printable_field(const char* field, size_t size)
{
    return printable({field, strnlen(field, size)});
}

bool is_plain(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

std::string in_quotes(std::string_view text)
{
    return "'" + printable(text) + "'";
}

} // namespace text
