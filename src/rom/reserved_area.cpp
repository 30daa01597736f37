// SPDX-License-Identifier: Apache-2.0
// The small block of the SPI flash that belongs to the application.
#include <nyxus/device.h>
#include <nyxus/memory.h>
#include <nyxus/rom.h>

#include "trace/failure.h"
#include "unit.h"

static constexpr uint16_t kMostBytes = 256;

/// Queries the ROM anew, which has to be an SPI flash.
static int32_t query_spi_flash(const char* function, NyDevice* pDevObj)
{
    const int32_t rv = MP_QueryExtRom(pDevObj);
    if (rv < 0)
        return nyxus::pass_on(function, "MP_QueryExtRom(pDevObj)", rv);
    if (pDevObj->bExtRomType == EXTROM_TYPE_SPI)
        return 0;
    NY_TRACE_BARE(NY_TRACE_WARN, "<WARNING> pDevObj->bExtRomType != EXTROM_TYPE_SPI \n");
    return NYXUS_E_FAILED;
}

int32_t XU_SpiGetReservedArea(NyDevice* pDevObj, uint16_t wLen, uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (wLen > kMostBytes)
        return NYXUS_E_FAILED;
    if (wLen > 0)
        NY_REQUIRE(pBuf);
    const int32_t rv = query_spi_flash(__func__, pDevObj);
    if (rv < 0)
        return rv;
    return XuExtRomRead(pDevObj, SPI_RESERVED_ADDR, wLen, pBuf);
}

int32_t XU_SpiSetReservedArea(NyDevice* pDevObj, uint16_t wLen, const uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (wLen > kMostBytes)
        return NYXUS_E_FAILED;
    if (wLen > 0)
        NY_REQUIRE(pBuf);
    const int32_t rv = query_spi_flash(__func__, pDevObj);
    if (rv < 0)
        return rv;
    NY_TRY_AS("MP_ExtRomWriteEnable(pDevObj, pDevObj->bExtRomType, true)",
              MP_ExtRomWriteEnable(pDevObj, EXTROM_TYPE_SPI, true));
    NY_TRY(XuExtRomWrite(pDevObj, SPI_RESERVED_ADDR, wLen, pBuf)); // not erased: the host's choice
    NY_TRY(MP_ExtRomWriteEnable(pDevObj, pDevObj->bExtRomType, false));
    return 0;
}
