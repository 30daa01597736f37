// SPDX-License-Identifier: Apache-2.0
#include <nyxus/access.h>
#include <nyxus/device.h>

#include <unistd.h>

#include "trace/failure.h"
#include "unit.h"

static constexpr uint8_t kBusyBit = 0x01;
static constexpr useconds_t kPollInterval_us = 2000;

int32_t XU_SpiWaitStatus(NyDevice* pDevObj, uint8_t bMask, uint8_t bValue, uint32_t dwTimeout)
{
    NY_REQUIRE_DEVICE(pDevObj);
    // 3 per poll of 2 ms, tested 2 early: the number of polls is what cameras were tuned with.
    for (uint64_t counter = 0;; counter += 3) {
        uint8_t current_status = 0;
        NY_TRY(XuGetSpiStatus(pDevObj, &current_status));
        if ((current_status & bMask) == bValue) {
            NY_TRACE_DEV(NY_TRACE_ERROR, "mask(0x%02X) matched, current status = 0x%02X \n", bMask,
                         current_status);
            return 0;
        }
        NY_TRACE_DEV(NY_TRACE_ERROR, "mask(0x%02X) mismatch, current status = 0x%02X \n", bMask,
                     current_status);
        usleep(kPollInterval_us);
        if (counter + 2 >= dwTimeout)
            return NYXUS_E_BUSY;
    }
}

int32_t XU_SpiWaitBusReady(NyDevice* pDevObj, uint32_t dwTimeout)
{
    NY_REQUIRE_DEVICE(pDevObj);
    uint64_t counter = 0;
    for (;;) {
        uint8_t current_status = 0;
        NY_TRY(XuGetSpiStatus(pDevObj, &current_status));
        if ((current_status & kBusyBit) == 0) {
            NY_TRACE_DEV(NY_TRACE_SPI, "SPI bus ready, status = 0x%02X \n", current_status);
            return 0;
        }
        NY_TRACE_DEV(NY_TRACE_SPI, "SPI bus busy, status = 0x%02X \n", current_status);
        counter += 2;
        usleep(kPollInterval_us);
        if (counter >= dwTimeout)
            return NYXUS_E_BUSY;
    }
}
