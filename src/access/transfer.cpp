// SPDX-License-Identifier: Apache-2.0
#include <nyxus/device.h>
#include <nyxus/memory.h>

#include <algorithm>
#include <cstring>

#include "nyxus/config.h"
#include "pause.h"
#include "trace/failure.h"
#include "trace/progress.h"
#include "unit.h"

static constexpr uint32_t kWideChunk = 32;
static constexpr uint32_t kNarrowChunk = 8;

int32_t XuCtrlSeqContext(NyDevice* pDevObj, uint8_t bSelector, uint8_t bFlag, uint16_t wAddr,
                         uint32_t dwLen, uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (dwLen == 0)
        return 0;
    NY_REQUIRE(pBuf);

    const bool ext_rom = bSelector == ZRV_XU_EXT_ROM;
    const bool spi = pDevObj->bExtRomType == EXTROM_TYPE_SPI;
    const bool wide = ext_rom && pDevObj->xFeatureXU;
    const bool write = (bFlag & XU_FLAG_WRITE) != 0;
    const uint32_t chunk_limit = wide ? kWideChunk : kNarrowChunk;

    nyxus::ProgressMarks marks(dwLen);
    const nyxus::TransferProgress progress(dwLen);
    NyWrapper oWrapper = {};
    for (uint32_t offset = 0; offset < dwLen;) {
        const uint32_t chunk = std::min(dwLen - offset, chunk_limit);
        const uint32_t address = wAddr + offset;
        oWrapper.flags = static_cast<uint8_t>(bFlag | chunk);
        oWrapper.address_high = static_cast<uint8_t>(address >> 8);
        oWrapper.address_low = static_cast<uint8_t>(address);

        if (write) {
            // Firmware without an XU version protects the ROM again after every write.
            if (ext_rom && spi && !wide)
                NY_TRY_STORED(XuSetWriteProtect(pDevObj, false));
            if (ext_rom && spi)
                NY_TRY_STORED(XU_SpiWaitBusReady(pDevObj, 3000));
            std::memcpy(oWrapper.data, pBuf + offset, chunk);
            NY_TRY_STORED(XuSetWrapper(pDevObj, bSelector, &oWrapper));
            if (ext_rom && !spi)
                nyxus::pause_ms(nyxus_write_cycle_time);
        } else {
            NY_TRY_STORED(XuGetWrapper(pDevObj, bSelector, &oWrapper));
            std::memcpy(pBuf + offset, oWrapper.data, chunk);
        }
        offset += chunk;
        marks.mark(offset);
        // Registers that are reached on the way are no part of a longer transfer.
        if (ext_rom || progress.is_outermost())
            nyxus::TransferProgress::add(chunk);
    }
    return 0;
}

/// A write only reads the caller's bytes.
static uint8_t* writable(const uint8_t* data)
{
    return const_cast<uint8_t*>(data);
}

int32_t XuRegRead(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf)
{
    return XuCtrlSeqContext(pDevObj, ZRV_XU_REG, XU_FLAG_READ, static_cast<uint16_t>(wAddr),
                            wLen & 0xFFFF, pBuf);
}

int32_t XuRegWrite(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, const uint8_t* pBuf)
{
    return XuCtrlSeqContext(pDevObj, ZRV_XU_REG, XU_FLAG_WRITE, static_cast<uint16_t>(wAddr),
                            wLen & 0xFFFF, writable(pBuf));
}

int32_t XuSensorRead(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf)
{
    return XuCtrlSeqContext(pDevObj, ZRV_XU_SENSOR, XU_FLAG_READ, static_cast<uint16_t>(wAddr),
                            wLen & 0xFFFF, pBuf);
}

int32_t XuSensorWrite(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, const uint8_t* pBuf)
{
    return XuCtrlSeqContext(pDevObj, ZRV_XU_SENSOR, XU_FLAG_WRITE, static_cast<uint16_t>(wAddr),
                            wLen & 0xFFFF, writable(pBuf));
}

// MCU data has 8-bit addresses.
int32_t XuMcuDataRead(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf)
{
    return XuCtrlSeqContext(pDevObj, ZRV_XU_MCU, XU_FLAG_READ, static_cast<uint16_t>(wAddr & 0xFF),
                            wLen & 0xFF, pBuf);
}

int32_t XuMcuDataWrite(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, const uint8_t* pBuf)
{
    return XuCtrlSeqContext(pDevObj, ZRV_XU_MCU, XU_FLAG_WRITE, static_cast<uint16_t>(wAddr & 0xFF),
                            wLen & 0xFF, writable(pBuf));
}
