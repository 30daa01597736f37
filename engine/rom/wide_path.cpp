// SPDX-License-Identifier: Apache-2.0
#include "wide_path.h"

#include <nyxus/access.h>
#include <algorithm>

#include "queue.h"

namespace nyxus::engine {

namespace {

constexpr uint32_t kMostNarrowBytes = 32;

bool announces_wide_path(const NyDevice& device)
{
    const std::span rows(device.xu_table, static_cast<size_t>(device.xu_table_count));
    return std::ranges::any_of(rows, [](const uvc_xu_ctrl& row) {
        return row.selector == ZRV_XU_Read_EXT_ROM_512 && row.length == sizeof(NyWrapper512);
    });
}

/// Whether a request for data is taken as one: while the ROM is unlocked the firmware takes it for
/// a write as well.
bool is_locked(NyDevice& device)
{
    uint8_t locked = 0;
    return XuGetWriteProtect(&device, &locked) >= 0 && locked != 0;
}

} // namespace

bool can_read_wide(Camera& camera)
{
    // Should the lock not be what it says, a flash takes no harm from a request, but an EEPROM
    // does.
    return camera.has_spi_flash() && !camera.wide_path_fails &&
           announces_wide_path(*camera.device()) && is_locked(*camera.device());
}

/// Firmware may announce the wide path and serve it badly, so the end of each slice's first chunk
/// is read by the narrow one as well.
Status read_wide(const Reading& reading, uint32_t address, std::span<uint8_t> out)
{
    const auto size = static_cast<uint32_t>(out.size());
    const uint32_t first_chunk = std::min(kWideChunk, size);
    const uint32_t check_size = std::min<uint32_t>(reading.camera.exchange_bytes(), first_chunk);
    const uint32_t check_offset = first_chunk - check_size;
    uint8_t bytes[kMostNarrowBytes];
    const std::span check = std::span(bytes).first(check_size);
    if (Status read =
            exchange(reading, narrow_width(reading.camera), address + check_offset, check);
        !read)
        return read;
    if (Status read = read_inside_block(reading, Width::k512, address, out); !read)
        return read;
    if (std::ranges::equal(out.subspan(check_offset, check_size), check))
        return {};
    return {Reason::kUnreliableReads,
            reading_failed(reading.phase, address + check_offset) +
                ": the camera says something else when it is asked for 512 bytes"};
}

} // namespace nyxus::engine
