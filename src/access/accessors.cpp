// SPDX-License-Identifier: Apache-2.0
#include <nyxus/access.h>
#include <nyxus/config.h>
#include <nyxus/device.h>

#include <endian.h>

#include "pause.h"
#include "trace/failure.h"
#include "unit.h"
#include "usb/xu_exchange.h"

using nyxus::xu_exchange;

static_assert(sizeof(NyWrapper) == 35 && offsetof(NyWrapper, data) == 3);

static constexpr uint16_t kOsdBytes = 18;
static constexpr uint16_t kVersionTextBytes = 11;

uint8_t nyxus_write_cycle_time = 1;
uint8_t nyxus_print_progress = 0;
uint8_t bEepromWriteCycleTime = 0;

/// A one-byte setting into the caller's byte, which keeps its value on failure.
static int32_t get_byte(NyDevice* pDevObj, int32_t selector, uint8_t* value)
{
    uint8_t answer = *value;
    const int32_t rv = xu_exchange(pDevObj, selector, UVC_GET_CUR, &answer, 1);
    if (rv >= 0)
        *value = answer;
    return rv;
}

static int32_t set_byte(NyDevice* pDevObj, int32_t selector, uint8_t value)
{
    return xu_exchange(pDevObj, selector, UVC_SET_CUR, &value, 1);
}

static uint8_t low_byte(int32_t value)
{
    return static_cast<uint8_t>(value);
}

int32_t XuGetVersion(NyDevice* pDevObj, NyXuVersion* pRecord)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pRecord);
    return UvcXuCtrlQuery(pDevObj, NY_UNIT_VENDOR, ZRV_XU_VERSION, UVC_GET_CUR, sizeof *pRecord,
                          reinterpret_cast<uint8_t*>(pRecord));
}

int32_t XuGetIntFwVer(NyDevice* pDevObj, char* pText)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pText);
    return UvcXuCtrlQuery(pDevObj, NY_UNIT_VENDOR, ZRV_XU_INT_FW_VER, UVC_GET_CUR,
                          kVersionTextBytes, reinterpret_cast<uint8_t*>(pText));
}

int32_t XuSetWrapper(NyDevice* pDevObj, int32_t bSelector, NyWrapper* pWrapper)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pWrapper);
    return xu_exchange(pDevObj, bSelector, UVC_SET_CUR, pWrapper, sizeof *pWrapper);
}

int32_t XuGetWrapper(NyDevice* pDevObj, int32_t bSelector, NyWrapper* pWrapper)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pWrapper);
    // Some firmware refuses the request and still answers the read, so only the read decides.
    (void)xu_exchange(pDevObj, bSelector, UVC_SET_CUR, pWrapper, sizeof *pWrapper);
    return xu_exchange(pDevObj, bSelector, UVC_GET_CUR, pWrapper, sizeof *pWrapper);
}

int32_t XuGetFlip(NyDevice* pDevObj, uint8_t* pFlip)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pFlip);
    NY_TRY_AS("UvcXuCtrlQueryNYXU(pDevObj, ZRV_XU_FLIP, UVC_GET_CUR, pFlip)",
              get_byte(pDevObj, ZRV_XU_FLIP, pFlip));
    *pFlip &= 0x02;
    return 0;
}

int32_t XuSetFlip(NyDevice* pDevObj, int32_t bEnable)
{
    return set_byte(pDevObj, ZRV_XU_FLIP, low_byte(bEnable) != 0 ? 0x02 : 0x00);
}

int32_t XuGetMirror(NyDevice* pDevObj, uint8_t* pMirror)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pMirror);
    NY_TRY_AS("UvcXuCtrlQueryNYXU(pDevObj, ZRV_XU_MIRROR, UVC_GET_CUR, pMirror)",
              get_byte(pDevObj, ZRV_XU_MIRROR, pMirror));
    *pMirror &= 0x01;
    return 0;
}

int32_t XuSetMirror(NyDevice* pDevObj, int32_t bEnable)
{
    return set_byte(pDevObj, ZRV_XU_MIRROR, low_byte(bEnable) != 0 ? 0x01 : 0x00);
}

int32_t XuGetSetfileVer(NyDevice* pDevObj, char* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pBuf);
    return xu_exchange(pDevObj, ZRV_XU_SETFILE_VER, UVC_GET_CUR, pBuf, kVersionTextBytes);
}

int32_t XuSetExtRomType(NyDevice* pDevObj, uint8_t bExtRomType)
{
    const nyxus::DeviceScope scope(pDevObj);
    NY_TRACE_DEV(NY_TRACE_INFO, "Setting bExtRomType = 0x%02X \n", bExtRomType);
    return set_byte(pDevObj, ZRV_XU_EXT_ROM_TYPE, bExtRomType);
}

int32_t XuGetWriteProtect(NyDevice* pDevObj, uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pBuf);
    return get_byte(pDevObj, ZRV_XU_WRITE_PROTECT, pBuf);
}

int32_t XuSetWriteProtect(NyDevice* pDevObj, int32_t bProtect)
{
    return set_byte(pDevObj, ZRV_XU_WRITE_PROTECT, low_byte(bProtect));
}

int32_t XuGetOsd(NyDevice* pDevObj, uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pBuf);
    return xu_exchange(pDevObj, ZRV_XU_OSD, UVC_GET_CUR, pBuf, kOsdBytes);
}

int32_t XuSetOsd(NyDevice* pDevObj, const uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pBuf);
    // A SET only reads the record.
    return xu_exchange(pDevObj, ZRV_XU_OSD, UVC_SET_CUR, const_cast<uint8_t*>(pBuf), kOsdBytes);
}

int32_t XuSetFlashBlockIndex(NyDevice* pDevObj, uint16_t wIndex)
{
    uint16_t payload = htole16(wIndex);
    return xu_exchange(pDevObj, ZRV_XU_FLASH_BLOCK, UVC_SET_CUR, &payload, sizeof payload);
}

int32_t XuGetSpiStatus(NyDevice* pDevObj, uint8_t* pStatus)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pStatus);
    NyWrapper oWrapper = {};
    NY_TRY(XuGetWrapper(pDevObj, ZRV_XU_SPI_STATUS, &oWrapper));
    *pStatus = oWrapper.data[0];
    return 0;
}

int32_t XuSetSpiStatus(NyDevice* pDevObj, uint8_t bStatus)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NyWrapper oWrapper = {};
    oWrapper.flags = XU_FLAG_WRITE;
    oWrapper.data[0] = bStatus;
    NY_TRY(XuSetWrapper(pDevObj, ZRV_XU_SPI_STATUS, &oWrapper));
    nyxus::pause_ms(pDevObj->oFlashInfo.bTwsr);
    return 0;
}

int32_t XuExtRomErase(NyDevice* pDevObj)
{
    NyWrapper oWrapper = {};
    oWrapper.flags = XU_FLAG_ERASE;
    return XuSetWrapper(pDevObj, ZRV_XU_EXT_ROM, &oWrapper);
}

void XU_SetWriteCycleTime(int32_t ms)
{
    bEepromWriteCycleTime = low_byte(ms);
    NY_TRACE(NY_TRACE_INFO, "INFO: Setting write-cycle-time = %d ms ... \n", bEepromWriteCycleTime);
}
