// SPDX-License-Identifier: Apache-2.0
// The customer's window of the EEPROM on the fingerprint boards.
#include <nyxus/fingerprint.h>
#include <nyxus/memory.h>
#include <nyxus/peripheral.h>
#include <nyxus/xu.h>

#include <algorithm>

#include "trace/failure.h"
#include "trace/progress.h"
#include "unit.h"

static constexpr uint16_t kWindowStart = 0x2400;
static constexpr uint16_t kWindowLastOffset = 0x5BFF;
static constexpr uint32_t kWindowEnd = 0x8000;
static constexpr uint32_t kPageBytes = 32;
static constexpr int32_t kWriteCycle_ms = 5;

/// 0, or the positive code that tells what is wrong with the range.
static int32_t check_range(uint16_t wAddr, uint16_t wLen)
{
    if (static_cast<uint16_t>(wAddr - kWindowStart) > kWindowLastOffset)
        return SG_EEPROM_BAD_START;
    return wAddr + uint32_t{wLen} > kWindowEnd ? SG_EEPROM_BAD_END : 0;
}

int32_t SG_EepromRead(NyDevice* pDevObj, uint16_t wAddr, uint16_t wLen, uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const int32_t range = check_range(wAddr, wLen);
    if (range != 0)
        return range;
    NY_TRY_STORED(XuExtRomRead512(pDevObj, wAddr, wLen, pBuf));
    return 0;
}

int32_t SG_XuExtRomWrite(NyDevice* pDevObj, uint16_t wAddr, uint16_t wLen, const uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (wLen == 0)
        return 0;
    NY_REQUIRE(pBuf);
    const nyxus::TransferProgress progress(wLen);
    int32_t rv = 0;
    for (uint32_t done = 0; done < wLen;) {
        const uint32_t address = wAddr + done;
        const uint32_t to_page_end = kPageBytes - address % kPageBytes;
        const uint32_t chunk = std::min(wLen - done, to_page_end);
        // The last page decides; a failure before it neither stops the others nor shows.
        rv =
            XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, XU_FLAG_WRITE, static_cast<uint16_t>(address),
                             chunk, const_cast<uint8_t*>(pBuf) + done);
        done += chunk;
    }
    return rv;
}

int32_t SG_EepromWrite(NyDevice* pDevObj, uint16_t wAddr, uint16_t wLen, const uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const int32_t range = check_range(wAddr, wLen);
    if (range != 0)
        return range;
    if (wLen > 0)
        NY_REQUIRE(pBuf);
    NY_TRACE_DEV(NY_TRACE_INFO, "Setting 'I2C' write 'enable'... \n");
    NY_TRY(XU_GpioSet(pDevObj, 0, GPIO_LOW));
    NY_TRY(XuSetWriteProtect(pDevObj, false));
    XU_SetWriteCycleTime(kWriteCycle_ms);
    NY_TRACE_DEV(NY_TRACE_INFO, "Start to write EEPROM,Addr=0x%0X,len=%d... \n", wAddr, wLen);
    // A failed write leaves the window unlocked, for the host to try again.
    NY_TRY(SG_XuExtRomWrite(pDevObj, wAddr, wLen, pBuf));
    NY_TRACE_DEV(NY_TRACE_INFO, "Write EEPROM done \n");
    NY_TRACE_DEV(NY_TRACE_INFO, "Setting 'I2C' write 'disable'... \n");
    NY_TRY(XuSetWriteProtect(pDevObj, true));
    NY_TRY(XU_GpioSet(pDevObj, 0, GPIO_HIGH));
    return 0;
}
