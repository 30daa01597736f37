// SPDX-License-Identifier: Apache-2.0
#include "writer.h"

#include <nyxus/rom.h>

#include "report/phase_scope.h"

namespace nyxus::engine {

Status enable_writing(Camera& camera, bool enable, const Caller& caller)
{
    PhaseScope scope(caller, enable ? Phase::kUnlocking : Phase::kLocking);
    NyDevice* device = camera.device();
    const int32_t rv = MP_ExtRomWriteEnable(device, device->bExtRomType, enable);
    if (rv >= 0) {
        scope.end();
        return {};
    }
    Status failure =
        library_failure(enable ? "unlocking the ROM failed" : "locking the ROM again failed", rv);
    if (failure.reason() != Reason::kTimedOut)
        return failure;
    return {Reason::kProtected, failure.message(), failure.code(), failure.where()};
}

Status erase_flash(Camera& camera, const Caller& caller)
{
    PhaseScope scope(caller, Phase::kErasing);
    const int32_t rv = XU_SpiEraseChip(camera.device());
    if (rv < 0)
        return library_failure("erasing the ROM failed", rv);
    scope.end();
    return {};
}

/// Only blocks behind the first one, which is selected otherwise.
static Status select_far_block(Camera& camera, uint32_t block)
{
    const int32_t rv = XuSetFlashBlockIndex(camera.device(), static_cast<uint16_t>(block));
    return rv < 0 ? library_failure("selecting a block of the ROM failed", rv) : Status();
}

static int32_t write_in_block(Camera& camera, uint32_t address, Bytes bytes,
                              const std::function<void(uint32_t)>& wrote)
{
    // Whole exchanges, and so few of them that the library prints no progress marks.
    constexpr size_t kSlice = 480;
    NyDevice* device = camera.device();
    const uint8_t flag = device->xFeatureXU != 0 ? XU_FLAG_WRITE : XU_FLAG_WRITE_OLD;
    // Of no bytes, it only selects the block where a camera wants that: once, not for every slice.
    int32_t rv = XuExtRomWrite(device, address, 0, nullptr);
    for (size_t done = 0; rv >= 0 && done < bytes.size();) {
        // The library only reads what it writes.
        const Bytes slice = bytes.subspan(done, kSlice);
        rv = XuCtrlSeqContext(device, ZRV_XU_EXT_ROM, flag, static_cast<uint16_t>(address + done),
                              static_cast<uint32_t>(slice.size()),
                              const_cast<uint8_t*>(slice.data()));
        done += slice.size();
        if (rv >= 0)
            wrote(static_cast<uint32_t>(slice.size()));
    }
    return rv;
}

Status write_rom(Camera& camera, uint32_t address, Bytes bytes,
                 const std::function<void(uint32_t)>& wrote)
{
    constexpr unsigned kBlockBits = 16;
    const uint32_t block = address >> kBlockBits;
    if (block > 0) {
        if (Status selected = select_far_block(camera, block); !selected)
            return selected;
    }
    if (const int32_t rv = write_in_block(camera, address, bytes, wrote); rv < 0)
        return library_failure("programming the ROM failed", rv);
    return block > 0 ? select_far_block(camera, 0) : Status();
}

} // namespace nyxus::engine
