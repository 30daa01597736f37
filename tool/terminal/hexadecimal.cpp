// SPDX-License-Identifier: Apache-2.0
#include "terminal/hexadecimal.h"

#include "terminal/text.h"

#include <algorithm>

namespace tool {

std::string bytes_text(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : bytes)
        text += (text.empty() ? "" : " ") + format("%02X", byte);
    return text;
}

std::string hexadecimal(std::span<const uint8_t> bytes, uint32_t address)
{
    constexpr size_t kLine = 16;
    std::string text;
    std::span<const uint8_t> before;
    bool repeats = false;
    for (size_t done = 0; done < bytes.size(); done += kLine) {
        const auto line = bytes.subspan(done, std::min(kLine, bytes.size() - done));
        const bool is_same = std::ranges::equal(line, before);
        if (!is_same || done + kLine >= bytes.size()) {
            std::string characters(line.begin(), line.end());
            std::ranges::replace_if(
                characters, [](char c) { return c < 0x20 || c > 0x7E; }, '.');
            text += (text.empty() ? "" : "\n") + format("0x%04zX  ", address + done) +
                    padded(bytes_text(line), 3 * kLine) + " " + characters;
        } else if (!repeats) {
            text += "\n*";
        }
        repeats = is_same;
        before = line;
    }
    return text;
}

} // namespace tool
