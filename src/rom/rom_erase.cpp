// SPDX-License-Identifier: Apache-2.0
#include <nyxus/access.h>
#include <nyxus/device.h>
#include <nyxus/rom.h>

#include <cstring>

#include "tables/spi_commands.h"
#include "trace/failure.h"
#include "unit.h"

static constexpr uint8_t kNoChipErase = 0xFF;

/// On behalf of a function, whose name failures carry.
static int32_t erase(const char* function, NyDevice* pDevObj, uint32_t address, uint8_t bCmd)
{
    uint8_t cmd_buf[4] = {kSpiWriteEnable};
    int32_t rv = XU_SpiCmdSet(pDevObj, cmd_buf, 1);
    if (rv < 0)
        return nyxus::pass_on(function, "XU_SpiCmdSet(pDevObj, cmd_buf, 1)", rv);
    cmd_buf[0] = bCmd;
    cmd_buf[1] = static_cast<uint8_t>(address >> 16);
    cmd_buf[2] = static_cast<uint8_t>(address >> 8);
    cmd_buf[3] = static_cast<uint8_t>(address);
    rv = XU_SpiCmdSet(pDevObj, cmd_buf, 4);
    if (rv < 0)
        return nyxus::pass_on(function, "XU_SpiCmdSet(pDevObj, cmd_buf, 4)", rv);
    rv = XU_SpiWaitBusReady(pDevObj, 3000);
    if (rv < 0)
        return nyxus::pass_on(function, "XU_SpiWaitBusReady(pDevObj, 3000)", rv);
    cmd_buf[0] = kSpiWriteDisable;
    rv = XU_SpiCmdSet(pDevObj, cmd_buf, 1);
    return rv < 0 ? nyxus::pass_on(function, "XU_SpiCmdSet(pDevObj, cmd_buf, 1)", rv) : 0;
}

int32_t XU_SpiCmdEraseDW(NyDevice* pDevObj, uint32_t dwAddr, uint8_t bCmd)
{
    NY_REQUIRE_DEVICE(pDevObj);
    return erase(__func__, pDevObj, dwAddr, bCmd);
}

int32_t XU_SpiCmdErase(NyDevice* pDevObj, uint16_t wAddr, uint8_t bCmd)
{
    NY_REQUIRE_DEVICE(pDevObj);
    return erase(__func__, pDevObj, wAddr, bCmd);
}

int32_t XU_SpiEraseBlockById(NyDevice* pDevObj, uint16_t wBlockId)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const auto wAddr = static_cast<uint16_t>(wBlockId << 12); // ids above 15 wrap
    NY_TRACE_DEV(NY_TRACE_ERROR, "pDevObj->oFlashInfo.bCmdBE = 0x%02X, wAddr = 0x%04X \n",
                 pDevObj->oFlashInfo.bCmdBE, wAddr);
    return XU_SpiCmdErase(pDevObj, wAddr, pDevObj->oFlashInfo.bCmdBE);
}

int32_t XU_SpiEraseChip(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (pDevObj->oFlashInfo.bCmdCE == kNoChipErase) {
        // The first block is all of the ROM that the camera uses.
        NY_TRACE_DEV(NY_TRACE_ERROR, "Issuing SPI command 'Block Erase'... \n");
        NY_TRY(XU_SpiEraseBlockById(pDevObj, 0));
    } else {
        NY_TRACE_DEV(NY_TRACE_ERROR, "Issuing SPI command 'Chip Erase'... \n");
        NY_TRY(XuSetWriteProtect(pDevObj, false));
        NY_TRY(XuExtRomErase(pDevObj));
        NY_TRY(XuSetWriteProtect(pDevObj, true));
    }
    const int32_t rv = XU_SpiWaitBusReady(pDevObj, 5000);
    if (rv == 0) {
        NY_TRACE_DEV(NY_TRACE_ERROR, "succeed. \n");
        return 0;
    }
    nyxus_rv = rv;
    NY_TRACE_DEV(NY_TRACE_ERROR, "FAILED. '%s (%d)' \n", strerror(-rv), rv);
    return rv;
}
