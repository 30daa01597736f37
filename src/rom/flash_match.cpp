// SPDX-License-Identifier: Apache-2.0
#include <nyxus/device.h>
#include <cstring>

#include "trace/failure.h"
#include "unit.h"

static constexpr int32_t kMostRows = 256;

int32_t MP_MatchFlash(NyDevice* pDevObj, uint8_t /*bParam*/, const uint8_t* pId)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pId);
    for (int32_t i = 0; i < spi_flash_table_count && i < kMostRows; ++i) {
        if (std::memcmp(spi_flash_table[i].ID, pId, sizeof spi_flash_table[i].ID) == 0) {
            pDevObj->oFlashInfo = spi_flash_table[i];
            return i;
        }
    }
    if (spi_flash_table_count > 0)
        pDevObj->oFlashInfo = spi_flash_table[spi_flash_table_count - 1];
    return NYXUS_E_FAILED;
}

int32_t MP_IdentifyEeprom(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    return NYXUS_E_NO_SUPPORT;
}
