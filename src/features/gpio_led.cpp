// SPDX-License-Identifier: Apache-2.0
#include <nyxus/memory.h>
#include <nyxus/peripheral.h>
#include <nyxus/registers.h>

#include "trace/failure.h"
#include "unit.h"

static constexpr uint8_t kMostIndex = 16;
static constexpr uint8_t kGpio0Select = 0x80;
static constexpr int kGpioRangeLine = 1898;

/// Failures are not looked at: a pin that cannot be driven never stopped an upgrade.
static void change_bits(NyDevice* pDevObj, uint16_t reg, uint8_t mask, bool set)
{
    uint8_t value = 0;
    (void)XuRegRead(pDevObj, reg, 1, &value);
    value = static_cast<uint8_t>(set ? value | mask : value & ~mask);
    (void)XuRegWrite(pDevObj, reg, 1, &value);
}

int32_t XU_GpioSet(NyDevice* pDevObj, int32_t bIndex, int32_t bValue)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const auto index = static_cast<uint8_t>(bIndex);
    const bool high = static_cast<uint8_t>(bValue) != 0;
    if (index > kMostIndex)
        return NY_FAIL_AT(kGpioRangeLine, NYXUS_E_RANGE, "GPIO index out of range");

    if (index == 0)
        change_bits(pDevObj, REG_GPIO0_SEL, kGpio0Select, true);
    if (index < 8) {
        const auto bit = static_cast<uint8_t>(1 << index);
        change_bits(pDevObj, REG_GPIO_OE_0, bit, true);
        change_bits(pDevObj, REG_GPIO_DATA_0, bit, high);
    } else {
        const auto bit = static_cast<uint8_t>(1 << (index - 8)); // 0 for index 16: nothing changes
        change_bits(pDevObj, REG_GPIO_OE_1, bit, true);
        change_bits(pDevObj, REG_GPIO_DATA_1, bit, high);
    }
    NY_TRACE_DEV(NY_TRACE_ERROR, "Set GPIO, bIndex = 0x%02X, bValue = '%s' \n", index,
                 high ? "GPIO_HIGH" : "GPIO_LOW");
    return 0;
}

static constexpr uint8_t kLedPending = 0x80;
static constexpr uint8_t kLedState = 0x58;

int32_t XU_LedStatusGet(NyDevice* pDevObj, uint8_t bLedSelector, uint8_t* pLedStatus)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pLedStatus);
    NY_TRY_AS("XuRegRead(pDevObj, XDATA_LED_CTRL+bLedSelector, 1, pLedStatus)",
              XuRegRead(pDevObj, XDATA_LED_CTRL + bLedSelector, 1, pLedStatus));
    if ((*pLedStatus & kLedPending) != 0)
        return NYXUS_E_BUSY; // with the raw byte
    *pLedStatus &= kLedState;
    return 0;
}

int32_t XU_LedStatusSet(NyDevice* pDevObj, uint8_t bLedSelector, uint8_t bLedStatus)
{
    NY_REQUIRE_DEVICE(pDevObj);
    uint8_t led_status = 0;
    NY_TRY_AS("XuRegRead(pDevObj, XDATA_LED_CTRL+bLedSelector, 1, &led_status)",
              XuRegRead(pDevObj, XDATA_LED_CTRL + bLedSelector, 1, &led_status));
    if ((led_status & kLedPending) != 0)
        return NYXUS_E_BUSY;
    bLedStatus |= kLedPending; // the firmware takes it up and clears the bit
    NY_TRY_AS("XuRegWrite(pDevObj, XDATA_LED_CTRL+bLedSelector, 1, &bLedStatus)",
              XuRegWrite(pDevObj, XDATA_LED_CTRL + bLedSelector, 1, &bLedStatus));
    return 0;
}
