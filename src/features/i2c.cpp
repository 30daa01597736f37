// SPDX-License-Identifier: Apache-2.0
// The I2C master behind the controller's registers.
#include <nyxus/memory.h>
#include <nyxus/peripheral.h>
#include <nyxus/registers.h>

#include "trace/failure.h"
#include "unit.h"

static constexpr uint8_t kReadTransfer = 0xC0;
static constexpr uint8_t kWriteTransfer = 0x80;

/// The I2C registers in their order.
struct I2cSetting {
    uint8_t bAddrMode;
    uint8_t bSlaveAddr; ///< 8-bit form
    uint8_t bAddrHi;    ///< bit 7 = bit 8 of the register address
    uint8_t bAddrLo;
    uint8_t bLen;
    uint8_t bI2cCtrl;
};

static I2cSetting transfer_of(uint16_t address, uint8_t length, uint8_t control)
{
    I2cSetting setting = {};
    setting.bAddrHi = static_cast<uint8_t>((address >> 1) & 0x80);
    setting.bAddrLo = static_cast<uint8_t>(address);
    setting.bLen = length;
    setting.bI2cCtrl = control;
    return setting;
}

int32_t XU_I2cConfigGet(NyDevice* pDevObj, uint8_t* pConfig)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pConfig);
    I2cSetting setting = {};
    NY_TRY(XuRegRead(pDevObj, XDATA_I2C_ADDR_MODE, 2, &(setting.bAddrMode)));
    *pConfig = setting.bAddrMode | setting.bSlaveAddr;
    return 0;
}

int32_t XU_I2cConfigSet(NyDevice* pDevObj, const uint8_t* pConfig)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pConfig);
    I2cSetting setting = {};
    setting.bAddrMode = *pConfig & 0x01;
    setting.bSlaveAddr = *pConfig & 0xFE;
    NY_TRY(XuRegWrite(pDevObj, XDATA_I2C_ADDR_MODE, 2, &(setting.bAddrMode)));
    return 0;
}

int32_t XU_I2cGet(NyDevice* pDevObj, uint16_t wAddr, uint8_t bLen, uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (pBuf == nullptr)
        return NYXUS_E_FAILED;
    const I2cSetting setting = transfer_of(wAddr, bLen, kReadTransfer);
    NY_TRY(XuRegWrite(pDevObj, XDATA_I2C_ADDR, 4, &(setting.bAddrHi)));
    NY_TRY(XuRegRead(pDevObj, XDATA_I2C_BUF, bLen, pBuf));
    return 0;
}

int32_t XU_I2cSet(NyDevice* pDevObj, uint16_t wAddr, uint8_t bLen, const uint8_t* pBuf)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (pBuf == nullptr)
        return NYXUS_E_FAILED;
    const I2cSetting setting = transfer_of(wAddr, bLen, kWriteTransfer);
    NY_TRY(XuRegWrite(pDevObj, XDATA_I2C_BUF, bLen, pBuf)); // the command sends what lies there
    NY_TRY(XuRegWrite(pDevObj, XDATA_I2C_ADDR, 4, &(setting.bAddrHi)));
    return 0;
}
