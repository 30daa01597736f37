// SPDX-License-Identifier: Apache-2.0
#include "rom_layout.h"

#include <nyxus/image.h>
#include <nyxus/rom.h>
#include <algorithm>

#include "mfi_layout.h"

namespace nyxus::engine {

static bool is_erased(Bytes bytes)
{
    return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0xFF; });
}

uint32_t end_of_firmware(Bytes rom)
{
    constexpr uint32_t kPage = 256;
    constexpr uint32_t kGap = 4;
    rom = rom.subspan(0, NYXUS_FW_BIN_CAPACITY);
    const auto most = static_cast<uint32_t>(rom.size());
    uint32_t end = 0;
    while (end < most && !is_erased(rom.subspan(end, kPage)))
        end = std::min(end + kPage, most);
    for (const uint32_t area : {uint32_t{NYXUS_MFI_ROM_ADDR}, uint32_t{SPI_RESERVED_ADDR}}) {
        const bool is_apart = area < end && is_erased(rom.subspan(area - kGap, kGap));
        if (is_apart || (area == NYXUS_MFI_ROM_ADDR && area < end && find_mfi(mfi_area(rom))))
            return area;
    }
    return end;
}

} // namespace nyxus::engine
