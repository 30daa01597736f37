// SPDX-License-Identifier: Apache-2.0
#include <nyxus/trace.h>

#include <algorithm>
#include <cstdio>

#include "failure.h"
#include "unit.h"

static constexpr uint32_t kRowBytes = 16;
static constexpr char kHeader[] = "            0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F ;\n";

static void print_row(uint32_t address, const uint8_t* data, uint32_t count, bool ascii)
{
    char row[96];
    int end = std::snprintf(row, sizeof row, "%08Xh: ", address);
    const auto room = [&] { return sizeof row - static_cast<size_t>(end); };
    for (uint32_t i = 0; i < kRowBytes; ++i) {
        end += i < count ? std::snprintf(row + end, room(), "%02X ", data[i])
                         : std::snprintf(row + end, room(), "   ");
    }
    end += std::snprintf(row + end, room(), "; ");
    for (uint32_t i = 0; ascii && i < count; ++i)
        row[end++] = data[i] >= 0x21 && data[i] <= 0x7E ? static_cast<char>(data[i]) : ' ';
    row[end++] = '\n';
    row[end] = '\0';
    nyxus::put(NYXUS_LINE_DUMP, row, static_cast<size_t>(end));
}

void NyPrintBuf(uint32_t dwBase, const uint8_t* pData, uint32_t dwLen, bool xAscii)
{
    if (dwLen > 0 && pData == nullptr) {
        (void)NY_FAIL_NULL(NYXUS_E_RANGE, pData);
        return;
    }
    nyxus::put(NYXUS_LINE_DUMP, kHeader, sizeof kHeader - 1);
    for (uint32_t offset = 0; offset < dwLen;) {
        const uint32_t count = std::min(dwLen - offset, kRowBytes);
        print_row(dwBase + offset, pData + offset, count, xAscii);
        offset += count;
    }
}
