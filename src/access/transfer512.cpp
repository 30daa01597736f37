// SPDX-License-Identifier: Apache-2.0
// The 512-byte path, and reads at 32-bit addresses over either path.
#include <nyxus/config.h>
#include <nyxus/device.h>
#include <nyxus/memory.h>

#include <algorithm>
#include <cstring>

#include "block.h"
#include "pause.h"
#include "trace/failure.h"
#include "trace/progress.h"
#include "unit.h"
#include "usb/xu_exchange.h"

static constexpr uint32_t kChunk = sizeof(NyWrapper512::data);
static_assert(sizeof(NyWrapper512) == 516);

int32_t XuGetWrapper512(NyDevice* pDevObj, NyWrapper512* pWrapper512)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pWrapper512);
    // As with the smaller wrapper, only the read decides.
    (void)XuSetWrapper512(pDevObj, pWrapper512);
    return nyxus::xu_exchange(pDevObj, ZRV_XU_Read_EXT_ROM_512, UVC_GET_CUR, pWrapper512,
                              sizeof *pWrapper512);
}

int32_t XuSetWrapper512(NyDevice* pDevObj, NyWrapper512* pWrapper512)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pWrapper512);
    return nyxus::xu_exchange(pDevObj, ZRV_XU_Read_EXT_ROM_512, UVC_SET_CUR, pWrapper512,
                              sizeof *pWrapper512);
}

int32_t XuCtrlSeqContext512(NyDevice* pDevObj, uint8_t bFlag, uint16_t wAddr, uint32_t dwLen,
                            uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (dwLen == 0)
        return 0;
    NY_REQUIRE(pBuf);
    const nyxus::TransferProgress progress(dwLen);
    NyWrapper512 oWrapper512 = {};
    for (uint32_t offset = 0; offset < dwLen;) {
        const uint32_t chunk = std::min(dwLen - offset, kChunk);
        const uint32_t address = wAddr + offset;
        oWrapper512.length_high = static_cast<uint8_t>(chunk >> 8);
        oWrapper512.length_low = static_cast<uint8_t>(chunk);
        oWrapper512.address_high = static_cast<uint8_t>(address >> 8);
        oWrapper512.address_low = static_cast<uint8_t>(address);
        if ((bFlag & XU_FLAG_WRITE) != 0) {
            std::memcpy(oWrapper512.data, pBuf + offset, chunk);
            NY_TRY_STORED(XuSetWrapper512(pDevObj, &oWrapper512));
            nyxus::pause_ms(bEepromWriteCycleTime);
        } else {
            NY_TRY_STORED(XuGetWrapper512(pDevObj, &oWrapper512));
            std::memcpy(pBuf + offset, oWrapper512.data, chunk);
        }
        offset += chunk;
        if (nyxus_print_progress != 0)
            NyPrintProgress(static_cast<int32_t>(offset & 0xFFFF), dwLen);
        nyxus::TransferProgress::add(chunk);
    }
    return 0;
}

int32_t XuExtRomRead512(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf)
{
    return XuCtrlSeqContext512(pDevObj, XU_FLAG_READ, static_cast<uint16_t>(wAddr), wLen & 0xFFFF,
                               pBuf);
}

static int32_t transfer(NyDevice* pDevObj, uint8_t bFlag, uint8_t bSelector, uint16_t address,
                        uint32_t length, uint8_t* data)
{
    if (bSelector == ZRV_XU_Read_EXT_ROM_512)
        return XuCtrlSeqContext512(pDevObj, bFlag, address, length, data);
    if (bSelector == ZRV_XU_EXT_ROM)
        return XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, bFlag, address, length, data);
    return 0;
}

int32_t VELKA_DwAddrRead(NyDevice* pDevObj, uint8_t bFlag, uint8_t bSelector, uint32_t dwAddr,
                         uint32_t dwLen, uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (dwLen > 0)
        NY_REQUIRE(pBuf);
    const nyxus::TransferProgress progress(dwLen);
    const auto first_block = static_cast<uint16_t>(dwAddr >> 16);
    const auto last_block = static_cast<uint16_t>((dwAddr + dwLen) >> 16);
    uint16_t address = static_cast<uint16_t>(dwAddr);
    uint32_t chunk = first_block == last_block ? dwLen : kBlockBytes - address;

    if (XuSetFlashBlockIndex(pDevObj, first_block) < 0)
        return XuSetFlashBlockIndex(pDevObj, 0);
    uint16_t block = first_block;
    for (uint32_t position = 0; position != dwLen; ++block) {
        if (block != first_block && XuSetFlashBlockIndex(pDevObj, block) < 0)
            break;
        chunk = std::min(chunk, dwLen - position);
        if (transfer(pDevObj, bFlag, bSelector, address, chunk, pBuf + position) != 0)
            break;
        position += chunk;
        chunk = kBlockBytes;
        address = 0;
    }
    // Whatever ended the walk: the result tells whether block 0 is selected again.
    return XuSetFlashBlockIndex(pDevObj, 0);
}

int32_t XuExtRomReadDW(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen, uint8_t* pBuf)
{
    return VELKA_DwAddrRead(pDevObj, XU_FLAG_READ, ZRV_XU_EXT_ROM, dwAddr, dwLen, pBuf);
}

int32_t XuExtRomRead512DW(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen, uint8_t* pBuf)
{
    return VELKA_DwAddrRead(pDevObj, XU_FLAG_READ, ZRV_XU_Read_EXT_ROM_512, dwAddr, dwLen, pBuf);
}
