// SPDX-License-Identifier: Apache-2.0
#include <nyxus/memory.h>
#include <nyxus/peripheral.h>
#include <nyxus/registers.h>

#include "trace/failure.h"
#include "unit.h"

static constexpr uint8_t kHighestGain = 63;
static constexpr uint8_t kRefusedGain = 32; // refused on purpose, unlike its neighbours
static constexpr uint32_t kMotionBytes = 4;
static constexpr uint8_t kAlarmBit = 0x01;

int32_t XU_MjpgQGainGet(NyDevice* pDevObj, uint8_t* pGain)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pGain);
    return XuRegRead(pDevObj, REG_MJPG_QGAIN, 1, pGain);
}

int32_t XU_MjpgQGainSet(NyDevice* pDevObj, int32_t bGain)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const auto gain = static_cast<uint8_t>(bGain);
    if (gain == 0 || gain > kHighestGain || gain == kRefusedGain)
        return NYXUS_E_FAILED;
    return XuRegWrite(pDevObj, REG_MJPG_QGAIN, 1, &gain);
}

int32_t XU_MotionDetectGet(NyDevice* pDevObj, uint8_t* pSetting)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pSetting);
    return XuRegRead(pDevObj, XDATA_MOTION_SETTING, kMotionBytes, pSetting);
}

int32_t XU_MotionDetectSet(NyDevice* pDevObj, const uint8_t* pSetting)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pSetting);
    return XuRegWrite(pDevObj, XDATA_MOTION_SETTING, kMotionBytes, pSetting);
}

int32_t XU_MotionDetectPoll(NyDevice* pDevObj, uint8_t* pAlarm)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pAlarm);
    NY_TRY(XuRegRead(pDevObj, XDATA_MOTION_ALARM, 1, pAlarm));
    const bool raised = (*pAlarm & kAlarmBit) != 0;
    if (raised) { // acknowledged, so that the next one shows
        *pAlarm = static_cast<uint8_t>(*pAlarm & ~kAlarmBit);
        NY_TRY(XuRegWrite(pDevObj, XDATA_MOTION_ALARM, 1, pAlarm));
    }
    *pAlarm = raised ? 1 : 0;
    return 0;
}
