// SPDX-License-Identifier: Apache-2.0
// Write enable and block protection of the external ROM.
#include <nyxus/access.h>
#include <nyxus/device.h>
#include <nyxus/peripheral.h>
#include <nyxus/rom.h>

#include <unistd.h>

#include "tables/spi_commands.h"
#include "trace/failure.h"
#include "unit.h"

static constexpr int kProtectAttempts = 6;
static constexpr useconds_t kCommandPause_us = 100000;
static constexpr int kProtectTimeoutLine = 1550;
static constexpr int kProtectTimeoutLineIB = 1586;

int32_t XU_SpiBlockProtect(NyDevice* pDevObj, bool xEnable)
{
    NY_REQUIRE_DEVICE(pDevObj);
    for (int attempt = 0; attempt < kProtectAttempts; ++attempt) {
        uint8_t cmd_buf[] = {kSpiWriteEnable};
        NY_TRY(XU_SpiCmdSet(pDevObj, cmd_buf, 1));
        usleep(kCommandPause_us);
        cmd_buf[0] = kSpiStatusWriteEnable;
        NY_TRY(XU_SpiCmdSet(pDevObj, cmd_buf, 1));
        usleep(kCommandPause_us);
        NY_TRY(XuSetSpiStatus(pDevObj, (xEnable) ? 0x9C : 0x00));
        // A status that cannot be read counts as one that does not match.
        if (XU_SpiWaitStatus(pDevObj, 0x04, xEnable ? 0x04 : 0x00, 100) == 0)
            return 0;
    }
    return NY_FAIL_AT(kProtectTimeoutLine, NYXUS_E_TIMEOUT, "Issue SPI block protect timed out");
}

int32_t XU_SpiBlockProtect_for_customer_IB(NyDevice* pDevObj, bool xEnable)
{
    NY_REQUIRE_DEVICE(pDevObj);
    uint8_t cmd_buf[] = {kSpiStatusWriteEnable};
    for (int attempt = 0; attempt < kProtectAttempts; ++attempt) {
        NY_TRY(XU_SpiCmdSet(pDevObj, cmd_buf, 1));
        usleep(kCommandPause_us);
        NY_TRY(XuSetSpiStatus(pDevObj, (xEnable) ? 0x8C : 0x00));
        if (XU_SpiWaitStatus(pDevObj, 0x0C, xEnable ? 0x0C : 0x00, 100) == 0)
            return 0;
    }
    cmd_buf[0] = kSpiWriteEnable;
    NY_TRY(XU_SpiCmdSet(pDevObj, cmd_buf, 1));
    usleep(kCommandPause_us);
    return NY_FAIL_AT(kProtectTimeoutLineIB, NYXUS_E_TIMEOUT, "Issue SPI block protect timed out");
}

int32_t MP_ExtRomWriteEnable(NyDevice* pDevObj, uint8_t bExtRomType, bool xEnable)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const bool spi = bExtRomType == EXTROM_TYPE_SPI;
    if (spi && pDevObj->xFeatureXU && xEnable) {
        NY_TRACE_DEV(NY_TRACE_ERROR, "Setting 'SPI' write 'enable' for NY6400T++... \n");
        uint8_t tmp = 0; // both reads belong to the sequence, their value is not used
        NY_TRY(XuGetWriteProtect(pDevObj, &tmp));
        NY_TRY(XuSetWriteProtect(pDevObj, false));
        NY_TRY(XuGetWriteProtect(pDevObj, &tmp));
        NY_TRY(XuSetSpiStatus(pDevObj, 0x00));
        NY_TRY(XU_SpiWaitStatus(pDevObj, 0x0C, 0x00, 0x28));
    } else if (spi && pDevObj->xFeatureXU) {
        NY_TRACE_DEV(NY_TRACE_ERROR, "Setting 'SPI' write 'disable' for NY6400T++... \n");
        NY_TRY(XuSetSpiStatus(pDevObj, 0x8C));
        NY_TRY(XuSetWriteProtect(pDevObj, true));
        NY_TRY(XU_SpiWaitStatus(pDevObj, 0x0C, 0x0C, 100));
    } else if (spi && xEnable) {
        NY_TRACE_DEV(NY_TRACE_ERROR, "Setting 'SPI' write 'enable' for ZR5XXX... \n");
        NY_TRY(XU_GpioSet(pDevObj, 0, GPIO_HIGH));
        NY_TRY(XU_SpiBlockProtect(pDevObj, false));
    } else if (spi) {
        NY_TRACE_DEV(NY_TRACE_ERROR, "Setting 'SPI' write 'disable' for ZR5XXX++... \n");
        NY_TRY(XU_SpiBlockProtect(pDevObj, true));
        NY_TRY(XU_GpioSet(pDevObj, 0, GPIO_LOW));
    } else if (xEnable) {
        NY_TRACE_DEV(NY_TRACE_ERROR, "Setting 'I2C' write 'enable'... \n");
        NY_TRY(XuSetWriteProtect(pDevObj, false));
    } else {
        NY_TRACE_DEV(NY_TRACE_ERROR, "Setting 'I2C' write 'disable'... \n");
        NY_TRY(XuSetWriteProtect(pDevObj, true));
    }
    return 0;
}
