// SPDX-License-Identifier: Apache-2.0
#include "wide_path.h"

#include <nyxus/access.h>
#include <algorithm>

namespace nyxus::engine {

namespace {

constexpr uint32_t kMostNarrowBytes = 32;
/// Bytes that only a camera leaves alone that answers too little.
constexpr uint8_t kUnanswered = 0xA5;
constexpr size_t kUnansweredTail = 16;

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

/// One exchange by up to 512 bytes.
bool read_chunk(NyDevice& device, uint32_t address, std::span<uint8_t> out)
{
    NyWrapper512 request = {static_cast<uint8_t>(out.size() >> 8),
                            static_cast<uint8_t>(out.size()),
                            static_cast<uint8_t>(address >> 8),
                            static_cast<uint8_t>(address),
                            {}};
    // Ones change no flash, should they be written.
    std::ranges::fill(request.data, uint8_t{0xFF});
    if (XuSetWrapper512(&device, &request) < 0)
        return false;
    NyWrapper512 answer = {};
    std::ranges::fill(answer.data, kUnanswered);
    if (UvcXuCtrlQuery(&device, NY_UNIT_VENDOR, ZRV_XU_Read_EXT_ROM_512, UVC_GET_CUR, sizeof answer,
                       reinterpret_cast<uint8_t*>(&answer)) < 0)
        return false;
    // The library lets short answers pass.
    const auto tail = std::span(answer.data).last<kUnansweredTail>();
    const bool is_short = std::ranges::count(tail, kUnanswered) == kUnansweredTail;
    const bool is_other =
        answer.length_high != request.length_high || answer.length_low != request.length_low ||
        answer.address_high != request.address_high || answer.address_low != request.address_low;
    if (is_short || is_other)
        return false;
    std::copy_n(answer.data, out.size(), out.begin());
    return true;
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
/// is read by the narrow one as well; before, because that selects the block where there are
/// several.
bool read_wide(Camera& camera, uint32_t address, std::span<uint8_t> out)
{
    NyDevice& device = *camera.device();
    const auto size = static_cast<uint32_t>(out.size());
    const uint32_t first_chunk = std::min(kWideChunk, size);
    const uint32_t check_size = std::min<uint32_t>(camera.exchange_bytes(), first_chunk);
    const uint32_t check_offset = first_chunk - check_size;
    uint8_t check[kMostNarrowBytes];
    if (XuExtRomRead(&device, address + check_offset, check_size, check) < 0)
        return false;
    for (uint32_t done = 0; done < size; done += kWideChunk) {
        if (!read_chunk(device, address + done,
                        out.subspan(done, std::min(kWideChunk, size - done))))
            return false;
    }
    return std::ranges::equal(out.subspan(check_offset, check_size), std::span(check, check_size));
}

} // namespace nyxus::engine
