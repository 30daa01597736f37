// SPDX-License-Identifier: Apache-2.0
// 32-bit ROM addresses: 64 KiB blocks, selected one by one, with 16-bit addresses inside.
#include <nyxus/device.h>
#include <nyxus/memory.h>

#include <endian.h>

#include "block.h"
#include "tables/xu_version.h"
#include "trace/failure.h"
#include "trace/progress.h"
#include "unit.h"
#include "usb/xu_exchange.h"

// What the failure lines print, for the first, a full and the last block.
#define BLOCK_CALL_TEXTS(flag)                                                                    \
    {                                                                                             \
        "XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, " flag                                         \
        ", (WORD)(dwAddr & 0xFFFF), (0xFFFF-(dwAddr & 0xFFFF))+1, pBuf)",                         \
            "XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, " flag                                     \
            ", 0, 0x10000, pBuf+(0xFFFF-(dwAddr & 0xFFFF))+1+(i-(blockStart+1)*0x10000))",        \
            "XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, " flag                                     \
            ", 0, remainingSize, pBuf+(0xFFFF-(dwAddr & 0xFFFF))+1+((i-(blockStart+1))*0x10000))" \
    }

namespace {

struct BlockWalk {
    const char* function;
    struct {
        const char* first;
        const char* full;
        const char* last;
    } texts;
    uint8_t flag;
    bool reports_block; ///< reads the selection back and prints it
};

void select_block(NyDevice* pDevObj, uint32_t block, bool report)
{
    // Cameras with one block lack the control; the transfer itself tells what matters.
    (void)XuSetFlashBlockIndex(pDevObj, static_cast<uint16_t>(block));
    if (!report)
        return;
    uint16_t current = 0;
    (void)nyxus::xu_exchange(pDevObj, ZRV_XU_FLASH_BLOCK, UVC_GET_CUR, &current, sizeof current);
    nyxus::trace_bare(NYXUS_LINE_OUTPUT, "### current block = %d\n", le16toh(current));
}

int32_t walk_blocks(NyDevice* pDevObj, const BlockWalk& walk, uint32_t dwAddr, uint32_t dwLen,
                    uint8_t* pBuf)
{
    const auto transfer = [&](uint32_t address, uint32_t length, uint32_t position) {
        return XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, walk.flag, static_cast<uint16_t>(address),
                                length, pBuf + position);
    };
    const nyxus::TransferProgress progress(dwLen);
    const uint32_t block_start = dwAddr >> 16;
    if (pDevObj->oXuCtrlVer.wPrefix == kXuPrefixBlocks)
        select_block(pDevObj, block_start, false);

    const uint32_t first = kBlockBytes - (dwAddr & 0xFFFF);
    if (first >= dwLen)
        return transfer(dwAddr, dwLen, 0);

    int32_t rv = transfer(dwAddr, first, 0);
    if (rv < 0)
        return nyxus::pass_on(walk.function, walk.texts.first, rv);

    const uint32_t last_block = (dwAddr + dwLen) >> 16;
    uint32_t position = first;
    for (uint32_t block = block_start + 1; block <= last_block; ++block) {
        select_block(pDevObj, block, walk.reports_block);
        const uint32_t remaining = dwLen - position;
        const bool full = remaining > 0xFFFF;
        const uint32_t length = full ? kBlockBytes : remaining;
        rv = transfer(0, length, position);
        if (rv < 0)
            return nyxus::pass_on(walk.function, full ? walk.texts.full : walk.texts.last, rv);
        position += length;
    }
    return 0;
}

} // namespace

int32_t XuExtRomRead(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen, uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (dwLen > 0)
        NY_REQUIRE(pBuf);
    constexpr BlockWalk kRead = {"XuExtRomRead", BLOCK_CALL_TEXTS("XU_FLAG_READ"), XU_FLAG_READ,
                                 false};
    return walk_blocks(pDevObj, kRead, dwAddr, dwLen, pBuf);
}

int32_t XuExtRomWrite(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen, const uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (dwLen > 0)
        NY_REQUIRE(pBuf);
    const uint8_t bWrapperFlag = pDevObj->xFeatureXU ? XU_FLAG_WRITE : XU_FLAG_WRITE_OLD;
    const BlockWalk write = {"XuExtRomWrite", BLOCK_CALL_TEXTS("bWrapperFlag"), bWrapperFlag, true};
    // A write only reads the caller's bytes.
    return walk_blocks(pDevObj, write, dwAddr, dwLen, const_cast<uint8_t*>(pBuf));
}
