// SPDX-License-Identifier: Apache-2.0
// Chip, firmware status and versions; chip reset.
#include <nyxus/memory.h>
#include <nyxus/registers.h>

#include <cstring>

#include "probe_report.h"
#include "tables/xu_version.h"
#include "trace/failure.h"
#include "unit.h"
#include "usb/xu_exchange.h"

static constexpr int32_t kUnknownChip = 3;
static constexpr uint8_t kRestartBit = 0x10;
static constexpr uint8_t kVersionRequest = 0x04; // kind of sensor request: versions

/// ZRV_XU_DEV_STATUS, as far as its bytes are known.
struct DeviceStatus {
    uint8_t reserved0;
    uint8_t setfile;
    uint8_t external_firmware;
    uint8_t spi;
    uint8_t reserved4[3];
    uint8_t bond;
};

static int32_t read_device_status(NyDevice* pDevObj, DeviceStatus* status)
{
    return nyxus::xu_exchange(pDevObj, ZRV_XU_DEV_STATUS, UVC_GET_CUR, status, sizeof *status);
}

/// The signature occurs in the version text, which need not be terminated.
static bool has_signature(const NyDevice& device, const NyBackend& row)
{
    const size_t text_length = strnlen(device.szIntFwVer, sizeof device.szIntFwVer);
    const size_t signature_length = strnlen(row.signature, sizeof row.signature);
    return memmem(device.szIntFwVer, text_length, row.signature, signature_length) != nullptr;
}

static bool is_cedar(const NyBackend& row)
{
    return row.family < IC_FAMILY_CEDAR + 1 && std::strcmp(IC_FAMILY_STR[row.family], "CEDAR") == 0;
}

static bool match_chip(NyDevice* pDevObj)
{
    DeviceStatus status = {};
    for (int32_t i = 0; i < backend_list_count; ++i) {
        const NyBackend& row = backend_list[i];
        if (!has_signature(*pDevObj, row))
            continue;
        pDevObj->oBackend = row;
        if (!is_cedar(row))
            return true;
        // One signature, several bond variants: only the device status tells them apart.
        const int32_t rv = read_device_status(pDevObj, &status);
        if (rv < 0)
            nyxus::pass_on("MP_QueryChipInfo", pDevObj, "Xu_QueryDevStatus()", rv);
        if (status.bond == row.bBondIdex)
            return true;
    }
    return false;
}

int32_t MP_QueryChipInfo(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_TRY(XuGetIntFwVer(pDevObj, pDevObj->szIntFwVer));
    NY_TRACE_DEV(NY_TRACE_ERROR, "pDevObj->szIntFwVer = %.11s \n", pDevObj->szIntFwVer);
    if (!match_chip(pDevObj))
        return kUnknownChip;

    const NyBackend& chip = pDevObj->oBackend;
    NY_TRACE_DEV(NY_TRACE_ERROR, "pDevObj->oBackend.signature = '%s' \n", chip.signature);
    NY_TRACE_DEV(NY_TRACE_ERROR, "                 .name      = '%s' \n", chip.name);
    NY_TRACE_DEV(NY_TRACE_ERROR, "                 .family    = '%s' \n",
                 IC_FAMILY_STR[chip.family]);
    NY_TRACE_DEV(NY_TRACE_ERROR, "                 .bBondIdex = '%d' \n",
                 static_cast<int>(chip.bBondIdex));
    NY_TRACE_DEV(NY_TRACE_ERROR, "%s", kSeparator);
    return 0;
}

int32_t XU_FwGetStatus(NyDevice* pDevObj, NyFirmwareStatus* pFwStatus)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pFwStatus);
    if (pDevObj->oXuCtrlVer.wVersion == kXuVersionStatus) {
        DeviceStatus status = {};
        NY_TRY_AS("UvcXuCtrlQueryNYXU(pDevObj, ZRV_XU_DEV_STATUS, UVC_GET_CUR, &m_oDevStatus)",
                  read_device_status(pDevObj, &status));
        pFwStatus->xSpiEnable = status.spi == 1;
        pFwStatus->xExtFwExist = status.external_firmware != 0;
        pFwStatus->xSetfileExist = status.setfile != 0;
        return 0;
    }
    uint8_t bSysModelField = 0;
    NY_TRY(XuMcuDataRead(pDevObj, MCU_SYS_MODEL_FIELD, 1, &bSysModelField));
    pFwStatus->xSpiEnable = (bSysModelField & 0x04) != 0;
    pFwStatus->xExtFwExist = (bSysModelField & 0x08) != 0;
    pFwStatus->xSetfileExist = (bSysModelField & 0x10) != 0;
    NY_TRACE_DEV(NY_TRACE_ERROR, "bSysModelField = 0x%02X \n", bSysModelField);
    NY_TRACE_DEV(NY_TRACE_ERROR, "pFwStatus->xSpiEnable    = %d \n", pFwStatus->xSpiEnable);
    NY_TRACE_DEV(NY_TRACE_ERROR, "         ->xExtFwExist   = %d \n", pFwStatus->xExtFwExist);
    NY_TRACE_DEV(NY_TRACE_ERROR, "         ->xSetfileExist = %d \n", pFwStatus->xSetfileExist);
    return 0;
}

int32_t XU_ExtFwGetVer(NyDevice* pDevObj, uint16_t* pwExtFwVer, uint16_t* pwExtSensorApId)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pwExtFwVer);
    NY_REQUIRE(pwExtSensorApId);
    NyWrapper oWrapper = {};
    oWrapper.flags = kVersionRequest;
    oWrapper.address_high = 0xFF;
    oWrapper.address_low = 0xFF;
    NY_TRY(XuGetWrapper(pDevObj, ZRV_XU_SENSOR, &oWrapper));
    *pwExtSensorApId = static_cast<uint16_t>(oWrapper.data[0] | oWrapper.data[1] << 8);
    *pwExtFwVer = static_cast<uint16_t>(oWrapper.data[2] | oWrapper.data[3] << 8);
    return 0;
}

int32_t MP_QueryModuleInfo(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NyFirmwareStatus& status = pDevObj->oFwStatus;
    int32_t rv = XU_FwGetStatus(pDevObj, &status);
    if (rv < 0)
        nyxus::pass_on(__func__, pDevObj, "XU_FwGetStatus()", rv);
    pDevObj->xModuleMode = status.xExtFwExist || status.xSetfileExist;
    NY_TRACE_DEV(NY_TRACE_ERROR, "pDevObj->xModuleMode = %d \n", pDevObj->xModuleMode);

    rv = XU_ExtFwGetVer(pDevObj, &pDevObj->wExtFwVer, &pDevObj->wExtSensorApId);
    if (rv < 0)
        nyxus::pass_on(__func__, pDevObj, "XU_ExtFwGetVer()", rv);
    NY_TRACE_DEV(NY_TRACE_ERROR, "pDevObj->wExtSensorApId = 0x%04X \n", pDevObj->wExtSensorApId);
    NY_TRACE_DEV(NY_TRACE_ERROR, "pDevObj->wExtFwVer = 0x%04X \n", pDevObj->wExtFwVer);

    rv = XuGetSetfileVer(pDevObj, pDevObj->szSetfileVer);
    if (rv < 0)
        nyxus::pass_on(__func__, pDevObj, "XuGetSetfileVer()", rv);
    NY_TRACE_DEV(NY_TRACE_ERROR, "pDevObj->szSetfileVer = '%.11s' \n", pDevObj->szSetfileVer);
    NY_TRACE_DEV(NY_TRACE_ERROR, "%s", kSeparator);
    return rv;
}

int32_t XU_ChipReset(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_TRACE_DEV(NY_TRACE_ERROR, "WARNING: About to chip reset... \n");
    NY_TRACE_DEV(NY_TRACE_ERROR, "         Chip reset will cause an IOCTL error \n");
    NY_TRACE_DEV(NY_TRACE_ERROR,
                 "         Because the chip is going to reload F/W and reconnect "
                 "to the USB host \n");
    uint8_t clock = 0;
    int32_t rv = XuRegRead(pDevObj, bRegMcuClk, 1, &clock); // a failure does not stop the reset
    NY_TRACE_DEV(NY_TRACE_ERROR, "rv = %d, XuRegRead(bRegMcuClk) = 0x%02X \n", rv, clock);
    clock |= kRestartBit;
    rv = XuRegWrite(pDevObj, bRegMcuClk, 1, &clock);
    NY_TRACE_DEV(NY_TRACE_ERROR, "rv = %d, XuRegWrite(bRegMcuClk) = 0x%02X \n", rv, clock);
    return rv;
}

int32_t DEV_SoftReset(NyDevice* pDevObj)
{
    return XU_ChipReset(pDevObj);
}
