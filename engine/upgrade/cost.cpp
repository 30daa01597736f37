// SPDX-License-Identifier: Apache-2.0
#include <nyxus/config.h>
#include <nyxus/engine/plan.hpp>
#include <nyxus/engine/rom.hpp>

#include "keeping.h"
#include "rom/wide_path.h"

namespace nyxus::engine {

namespace {
constexpr size_t kRegisterPiece = 8;
constexpr double kCommandPause_s = 0.1; // around commands that change the protection
constexpr Cost kStatusRead = {.transfers = 2};
constexpr Cost kProtectWrite = {.transfers = 1};
// The command, its set-up, the start, one look whether it is done (two transfers), the release.
constexpr Cost kSpiCommand = {.transfers = 6};

uint32_t pieces(size_t bytes, size_t piece)
{
    return static_cast<uint32_t>((bytes + piece - 1) / piece);
}

Cost times(uint32_t count, const Cost& cost)
{
    return {.transfers = count * cost.transfers, .pauses_s = count * cost.pauses_s};
}

bool is_wide(const Camera& camera)
{
    return camera.device()->xFeatureXU != 0;
}

Cost status_write(const Camera& camera)
{
    return {.transfers = 1, .pauses_s = camera.device()->oFlashInfo.bTwsr / 1000.0};
}

/// Older controllers protect the blocks by commands to the flash itself.
Cost block_protect(const Camera& camera)
{
    const Cost command = kSpiCommand + Cost{.pauses_s = kCommandPause_s};
    return times(2, command) + status_write(camera) + kStatusRead;
}

} // namespace

Cost register_write(size_t bytes)
{
    return {.transfers = pieces(bytes, kRegisterPiece)};
}

Cost register_read(size_t bytes)
{
    return {.transfers = 2 * pieces(bytes, kRegisterPiece)};
}

Cost register_change()
{
    return register_read(1) + register_write(1);
}

Cost pin_change(unsigned pin)
{
    return times(pin == 0 ? 3 : 2, register_change());
}

Cost rom_read(const Camera& camera, size_t bytes)
{
    return {.transfers = 2 * pieces(bytes, camera.exchange_bytes())};
}

/// The blocks that are selected: each one, and in the end the first one again.
static Cost block_selection(const Camera& camera, size_t bytes)
{
    const uint32_t blocks = pieces(bytes, kRomBlock);
    if (!selects_blocks(camera))
        return {};
    return {.transfers = blocks + (blocks > 1 ? 1 : 0)};
}

static Cost second_read(const Camera& camera, size_t bytes)
{
    return block_selection(camera, bytes) + rom_read(camera, bytes);
}

Cost whole_read(Camera& camera, size_t bytes)
{
    if (!can_read_wide(camera))
        return second_read(camera, bytes);
    // It is asked whether the ROM is locked, and a part of each slice is read twice.
    return block_selection(camera, bytes) +
           Cost{.transfers = 1 + 2 * (pieces(bytes, kWideSlice) + pieces(bytes, kWideChunk))};
}

Cost whole_read_twice(Camera& camera, size_t bytes)
{
    return whole_read(camera, bytes) + second_read(camera, bytes);
}

Cost rom_write(const Camera& camera, size_t bytes)
{
    Cost piece = {.transfers = 1};
    if (!camera.has_spi_flash()) {
        piece.pauses_s = nyxus_write_cycle_time / 1000.0;
    } else if (is_wide(camera)) {
        piece += kStatusRead;
    } else {
        piece += kStatusRead + kProtectWrite;
    }
    return times(pieces(bytes, camera.exchange_bytes()), piece);
}

Cost rom_unlock(const Camera& camera)
{
    if (!camera.has_spi_flash())
        return kProtectWrite;
    if (is_wide(camera))
        return kProtectWrite + Cost{.transfers = 2} + status_write(camera) + kStatusRead;
    return pin_change(0) + block_protect(camera);
}

Cost rom_lock(const Camera& camera)
{
    if (!camera.has_spi_flash())
        return kProtectWrite;
    if (is_wide(camera))
        return status_write(camera) + kProtectWrite + kStatusRead;
    return block_protect(camera) + pin_change(0);
}

Cost rom_query(const Camera& camera)
{
    constexpr size_t kHeaderBytes = 24;
    constexpr size_t kFlashInfoBytes = 11;
    constexpr uint16_t kHasFlashInfo = 0x0003; // as a control; before, it is in registers
    const Cost flash_info = camera.device()->oXuCtrlVer.wVersion == kHasFlashInfo
                                ? Cost{.transfers = 1}
                                : register_read(kFlashInfoBytes);
    // The ROM's header, what the controller knows of its flash, and the type that is set then.
    return rom_read(camera, kHeaderBytes) + flash_info + Cost{.transfers = 1};
}

Cost rom_erase(const Camera& camera)
{
    constexpr uint8_t kNoChipErase = 0xFF;
    if (!camera.has_spi_flash())
        return {};
    if (camera.device()->oFlashInfo.bCmdCE != kNoChipErase)
        return times(2, kProtectWrite) + Cost{.transfers = 1} + kStatusRead;
    return times(3, kSpiCommand) + times(2, kStatusRead);
}

static Cost write_pages(const Camera& camera, const Step& step)
{
    Cost cost;
    for (const auto& [offset, pages] : pages_in_use(step.address, step.data)) {
        cost += rom_write(camera, pages.size());
        if (step.address + offset >= kRomBlock)
            cost += {.transfers = 2}; // its block, and the first one again
    }
    return cost;
}

Cost cost_of(Camera& camera, const Step& step)
{
    switch (step.action) {
        case Action::kReadAgain:
            return second_read(camera, step.size);
        case Action::kBackUp:
            return {};
        case Action::kWriteKept:
            return write_pages(camera, step);
        case Action::kUnlock:
            return rom_unlock(camera);
        case Action::kErase:
            return rom_erase(camera);
        case Action::kWriteMfi:
        case Action::kWriteFirmware:
        case Action::kWriteHeader:
            return rom_write(camera, step.size);
        case Action::kLock:
            return rom_lock(camera);
        case Action::kRestart:
            return register_write(1);
        case Action::kRead:
        case Action::kReadBack:
        case Action::kReadBackMfi:
        case Action::kReadBackKept:
            break;
    }
    return whole_read(camera, step.size);
}

} // namespace nyxus::engine
