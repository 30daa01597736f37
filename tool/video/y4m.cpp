// SPDX-License-Identifier: Apache-2.0
#include "video/y4m.h"

#include "terminal/text.h"

#include <algorithm>

namespace tool {

/// "30:1" of 333333, which is no whole rate only because the unit is coarse.
static std::string rate_of(uint32_t interval)
{
    constexpr uint32_t kSecond = 10'000'000;
    const uint32_t known = std::max(interval, 1U);
    const uint32_t whole = (kSecond + known / 2) / known;
    const bool is_whole = whole != 0 && (kSecond / whole == known || kSecond / whole + 1 == known);
    return is_whole ? format("%u:1", whole) : format("%u:%u", kSecond, known);
}

std::string y4m_header(uint32_t width, uint32_t height, uint32_t interval)
{
    return format("YUV4MPEG2 W%u H%u F", width, height) + rate_of(interval) + " Ip A1:1 C422\n";
}

std::string y4m_frame(const nyxus::Frame& frame)
{
    constexpr char kHead[] = "FRAME\n";
    const size_t pixels = size_t{frame.width} * frame.height;
    std::string text = kHead;
    text.resize(text.size() + 2 * pixels);
    char* luma = &text[sizeof kHead - 1];
    char* blue = luma + pixels;
    char* red = blue + pixels / 2;
    const uint8_t* pair = frame.data.data();
    for (size_t i = 0; i < std::min(pixels / 2, frame.data.size() / 4); ++i, pair += 4) {
        *luma++ = static_cast<char>(pair[0]);
        *blue++ = static_cast<char>(pair[1]);
        *luma++ = static_cast<char>(pair[2]);
        *red++ = static_cast<char>(pair[3]);
    }
    return text;
}

} // namespace tool
