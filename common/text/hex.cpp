// SPDX-License-Identifier: Apache-2.0
#include "text/hex.h"

#include <charconv>

namespace text {

std::string hex(std::span<const uint8_t> bytes, std::string_view separator)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += text.empty() ? "" : separator;
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::optional<std::vector<uint8_t>> bytes_from_hex(std::string_view text)
{
    if (text.size() % 2 != 0)
        return std::nullopt;
    std::vector<uint8_t> bytes(text.size() / 2);
    const char* digits = text.data();
    for (uint8_t& byte : bytes) {
        const char* const end = digits + 2;
        if (std::from_chars(digits, end, byte, 16) != std::from_chars_result{end, {}})
            return std::nullopt;
        digits = end;
    }
    return bytes;
}

} // namespace text
