// SPDX-License-Identifier: Apache-2.0
#include "text/numbers.h"

#include <algorithm>
#include <charconv>

namespace text {

std::string without_leading_zeros(std::string text)
{
    const size_t sign = text.starts_with('+') ? 1 : 0;
    const size_t first = text.find_first_not_of('0', sign);
    if (text.find_first_not_of("0123456789", sign) == std::string::npos && text.size() > sign)
        text.erase(sign, std::min(first, text.size() - 1) - sign);
    return text;
}

std::optional<uint64_t> parse_number(std::string_view text, uint64_t most)
{
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(is_hex ? 2 : 0);
    uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number, is_hex ? 16 : 10);
    if (parsed != std::from_chars_result{end, {}} || number > most)
        return std::nullopt;
    return number;
}

} // namespace text
