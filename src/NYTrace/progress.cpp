// SPDX-License-Identifier: Apache-2.0
#include <nyxus/trace.h>

#include <cstdio>

void NyPrintProgress(int32_t dwCurrent, uint32_t dwTotal)
{
    if (dwTotal <= 511)
        return;
    const uint32_t current = static_cast<uint32_t>(dwCurrent) & 0xFFFF;
    if (current % 512 == 0) {
        std::fprintf(stderr, " (%d%%)\n", static_cast<uint8_t>(current * 100 / dwTotal));
        return;
    }
    std::fputs(current == dwTotal ? "# (100%)\n" : "#", stderr);
}
