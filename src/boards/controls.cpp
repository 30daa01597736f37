// SPDX-License-Identifier: Apache-2.0
// Power, sensor, LED, touch and modes of the fingerprint boards.
#include <nyxus/fingerprint.h>
#include <nyxus/memory.h>
#include <nyxus/registers.h>

#include <unistd.h>

#include "trace/failure.h"
#include "unit.h"

static constexpr uint8_t kSensorReset = 4;
static constexpr uint8_t kSnapshotTrigger = 3;
static constexpr useconds_t kModePulse_us = 100000;

/// The boards answer these three whether or not the register could be reached.
static void write_ignored(NyDevice* pDevObj, uint16_t reg, uint8_t value)
{
    (void)XuRegWrite(pDevObj, reg, 1, &value);
}

int32_t SG_SetAutoPower(NyDevice* pDevObj, int32_t bEnable)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const auto enable = static_cast<uint8_t>(bEnable);
    if (enable > 1)
        return NYXUS_E_FAILED;
    NY_TRY_AS("XuRegWrite(pDevObj, XDATA_SG_AUTO_POWER, 1, &bEnable)",
              XuRegWrite(pDevObj, XDATA_SG_AUTO_POWER, 1, &enable));
    return 0;
}

int32_t SG_SetSensorResetInit(NyDevice* pDevObj)
{
    const nyxus::DeviceScope scope(pDevObj);
    const uint8_t bValue = kSensorReset;
    NY_TRY(XuRegWrite(pDevObj, XDATA_SG_SENSOR_RESET_INIT, 1, &bValue));
    return 0;
}

int32_t SG_SetSensorResetPin(NyDevice* pDevObj)
{
    const nyxus::DeviceScope scope(pDevObj);
    const uint8_t bValue = 1;
    NY_TRY_AS("XuRegWrite(pDevObj, 0xB8D, 1, &bValue)",
              XuRegWrite(pDevObj, XDATA_SG_SENSOR_RESET_PIN, 1, &bValue));
    return 0;
}

int32_t SG_LedControl(NyDevice* pDevObj, int32_t bOn)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const auto on = static_cast<uint8_t>(bOn);
    if (on > 1)
        return NYXUS_E_FAILED;
    NY_TRY_AS("XuRegWrite(pDevObj, XDATA_SG_LED_CTRL, 1, &bOn)",
              XuRegWrite(pDevObj, XDATA_SG_LED_CTRL, 1, &on));
    return 0;
}

int32_t SG_TouchStatus(NyDevice* pDevObj, uint8_t* pStatus)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pStatus);
    return XuRegRead(pDevObj, XDATA_SG_TOUCH_STATUS, 1, pStatus);
}

int32_t SG_UsbSpeed(NyDevice* pDevObj, uint8_t* pSpeed)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pSpeed);
    uint8_t bSysModelField1 = 0;
    NY_TRY(XuMcuDataRead(pDevObj, BDATA_SYS_MODEL_FIELD_1, 1, &bSysModelField1));
    *pSpeed = bSysModelField1 & 0x01;
    return 0;
}

int32_t SG_StreamModeEnable(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    write_ignored(pDevObj, XDATA_SG_SNAPSHOT_MODE, 1);
    usleep(kModePulse_us);
    write_ignored(pDevObj, XDATA_SG_SNAPSHOT_MODE, 0);
    return 0;
}

int32_t SG_SnapshotModeEnable(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    write_ignored(pDevObj, XDATA_SG_SNAPSHOT_MODE, 1);
    return 0;
}

int32_t SG_SnapshotModeTrigger(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    write_ignored(pDevObj, XDATA_SG_SENSOR_RESET_INIT, kSnapshotTrigger);
    return 0;
}
