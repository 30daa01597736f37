// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <nyxus/engine/rom.hpp>
#include <span>

namespace nyxus::engine {

/// The third byte of an ID is the capacity's exponent where the part follows the usual order; the
/// catalogue is asked about the others. Not every row of it is exact.
static uint32_t flash_bytes(const NyFlashInfo& part)
{
    constexpr uint8_t kReadId = 0x9F;
    constexpr uint32_t kUnit = 0x8000;
    constexpr uint8_t kMostUnitBits = 9; // 16 MiB, all that 24 bits address
    const uint8_t exponent = part.ID[2];
    const bool in_usual_order = part.bCmdRDID == kReadId && exponent >= 16 && exponent <= 24;
    return in_usual_order ? 1U << exponent : kUnit << std::min(part.bSize, kMostUnitBits);
}

bool selects_blocks(const Camera& camera)
{
    const NyDevice& device = *camera.device();
    const std::span rows(device.xu_table, static_cast<size_t>(device.xu_table_count));
    return std::ranges::any_of(
        rows, [](const uvc_xu_ctrl& row) { return row.selector == ZRV_XU_FLASH_BLOCK; });
}

uint32_t part_bytes(const Camera& camera)
{
    const NyFlashInfo& part = camera.device()->oFlashInfo;
    const bool known = camera.has_spi_flash() && part.szName[0] != '\0';
    return known ? flash_bytes(part) : camera.rom_size();
}

uint32_t readable_bytes(const Camera& camera)
{
    return selects_blocks(camera) ? std::max(kRomBlock, part_bytes(camera)) : kRomBlock;
}

} // namespace nyxus::engine
