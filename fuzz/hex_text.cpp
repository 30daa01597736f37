// SPDX-License-Identifier: Apache-2.0
// Feeds the readers of hexadecimal and decimal texts. What passes for hexadecimal has to be read
// digit by digit.
//
// Input: room (a word), the text.
#include <nyxus/nyxus.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "support/input.h"

namespace {

uint8_t digit(char c)
{
    return static_cast<uint8_t>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::Input input(data, size);
    const auto room = static_cast<int16_t>(input.word());
    std::vector<uint8_t> text = input.rest();
    text.push_back('\0');
    const char* characters = reinterpret_cast<const char*>(text.data());
    const size_t pairs = std::char_traits<char>::length(characters) / 2;

    const auto count = std::min<size_t>(pairs, static_cast<size_t>(std::max<int16_t>(room, 0)));
    std::vector<uint8_t> bytes(std::max<size_t>(count, 1));
    bytes.resize(count);
    bytes.shrink_to_fit();
    uint8_t none = 0;
    const int32_t read = HexStr2Buf(characters, room, count > 0 ? bytes.data() : &none);
    if (read != static_cast<int32_t>(count))
        std::abort();
    (void)check_base_char(false, characters);
    if (check_base_char(true, characters) != 0)
        return 0;
    for (size_t i = 0; i < count; ++i)
        if (bytes[i] != (digit(characters[2 * i]) << 4 | digit(characters[2 * i + 1])))
            std::abort();
    return 0;
}
