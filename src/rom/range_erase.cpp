// SPDX-License-Identifier: Apache-2.0
// Erase of a byte range: whole blocks are erased, and what lay around the range is written back.
#include <nyxus/device.h>
#include <nyxus/memory.h>
#include <nyxus/rom.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "access/block.h"
#include "tables/xu_version.h"
#include "trace/failure.h"
#include "trace/progress.h"
#include "unit.h"

namespace {

/// The contents of consecutive blocks before the erase, and room to put a write-back together.
/// Each erase has its own, released whatever way it ends.
class Scratch {
public:
    Scratch() = default;
    ~Scratch() { std::free(memory_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    bool allocate(uint32_t first_block, uint32_t block_count)
    {
        base_ = uint64_t{first_block} * kBlockBytes;
        held_ = uint64_t{block_count} * kBlockBytes;
        memory_ = static_cast<uint8_t*>(std::malloc(held_ + kBlockBytes));
        return memory_ != nullptr;
    }

    uint8_t* block(uint32_t index) { return &memory_[size_t{index} * kBlockBytes]; }

    /// `length` bytes (one block at most) as they were at a ROM address; 0xFF, which programs
    /// nothing, where they are not held.
    const uint8_t* bytes_at(uint32_t rom_address, uint32_t length)
    {
        uint8_t* out = memory_ + held_;
        std::memset(out, 0xFF, length);
        if (rom_address >= base_ && rom_address < base_ + held_) {
            const uint64_t offset = rom_address - base_;
            std::memcpy(out, memory_ + offset, std::min<uint64_t>(length, held_ - offset));
        }
        return out;
    }

private:
    uint8_t* memory_ = nullptr;
    uint64_t base_ = 0;
    uint64_t held_ = 0;
};

} // namespace

/// The blocks that hold bytes of the range: none for an empty range or one that wraps.
static uint32_t count_blocks(uint32_t dwAddr, uint32_t dwLen)
{
    const uint32_t end = dwAddr + dwLen;
    if (dwLen == 0 || end < dwAddr)
        return 0;
    return ((end - 1) >> 16) - (dwAddr >> 16) + 1;
}

static int32_t read_block(NyDevice* pDevObj, uint32_t block, uint8_t* out)
{
    if (pDevObj->oXuCtrlVer.wPrefix == kXuPrefixBlocks)
        (void)XuSetFlashBlockIndex(pDevObj, static_cast<uint16_t>(block));
    // Address 0 for every block: the selection, where the firmware knows it, tells which.
    return XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, XU_FLAG_READ, 0, kBlockBytes, out);
}

int32_t XU_ExtRomEraseDWORD(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const uint32_t block_start = dwAddr >> 16;
    const uint32_t block_count = count_blocks(dwAddr, dwLen);
    const uint32_t end = dwAddr + dwLen;
    const uint32_t head_bytes = dwAddr & 0xFFFF;
    const bool has_tail = (end & 0xFFFF) != 0;
    const uint32_t tail_bytes = has_tail ? kBlockBytes - (dwLen & 0xFFFF) : 0; // not from end

    const nyxus::TransferProgress progress(uint64_t{block_count} * kBlockBytes + head_bytes +
                                           tail_bytes);
    Scratch scratch;
    if (!scratch.allocate(block_start, block_count))
        return NY_FAIL(NYXUS_E_NO_MEMORY, "Erase buffer malloc FAILED");
    for (uint32_t i = 0; i < block_count; ++i) {
        NY_TRY_AS(
            "XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, XU_FLAG_READ, 0, 0x10000, "
            "pData+(i-blockStart)*0x10000)",
            read_block(pDevObj, block_start + i, scratch.block(i)));
    }

    NY_TRY(MP_ExtRomWriteEnable(pDevObj, pDevObj->bExtRomType, true));
    for (uint32_t i = 0; i < block_count; ++i) // at address 0 every time, as the read
        (void)XU_SpiCmdErase(pDevObj, 0, pDevObj->oFlashInfo.bCmdBE);

    if (head_bytes != 0) {
        NY_TRY_AS(
            "XuExtRomWrite(pDevObj,(0xFFFF0000 & dwAddr),(dwAddr-(0xFFFF0000 & "
            "dwAddr)),pData)",
            XuExtRomWrite(pDevObj, dwAddr - head_bytes, head_bytes,
                          scratch.bytes_at(dwAddr - head_bytes, head_bytes)));
    }
    if (has_tail) {
        NY_TRY_AS(
            "XuExtRomWrite(pDevObj,(dwAddr+dwLen),(0x10000-(0xFFFF & "
            "dwLen)),&pData[blockEnd*0x10000+((dwAddr+dwLen) & 0xFFFF)])",
            XuExtRomWrite(pDevObj, end, tail_bytes, scratch.bytes_at(end, tail_bytes)));
    }
    NY_TRY(MP_ExtRomWriteEnable(pDevObj, pDevObj->bExtRomType, false));
    return 0;
}
