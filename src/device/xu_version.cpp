// SPDX-License-Identifier: Apache-2.0
// The choice of the camera's control table.
#include "tables/xu_version.h"
#include "probe_report.h"
#include "trace/failure.h"
#include "unit.h"

static constexpr char kQuery[] = "MP_QueryXuVersion"; // the steps trace as the query

static const NyXuTable* find_table(uint16_t version)
{
    for (int32_t i = 0; i < xu_table_list_count; ++i) {
        if (xu_table_list[i].version == version)
            return &xu_table_list[i];
    }
    return nullptr;
}

static bool read_version_record(NyDevice* pDevObj)
{
    const NyXuVersion& record = pDevObj->oXuCtrlVer;
    if (XuGetVersion(pDevObj, &pDevObj->oXuCtrlVer) < 0) {
        NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR,
                        "Using uvc_xu_table_ver_none (backend not support ZRV_XU_VERSION !!!) \n");
        return false;
    }
    if (record.wPrefix != kXuPrefix) {
        const int low = record.wPrefix & 0xFF;
        const int high = record.wPrefix >> 8;
        NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "XU Prefix=%c(0x%X)%c(0x%X)\n", low, low, high,
                        high);
        NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "XuVer: 0x%x\n", record.wVersion);
        return false;
    }
    return true;
}

static void select_table(NyDevice* pDevObj)
{
    const uint16_t version = pDevObj->oXuCtrlVer.wVersion;
    const NyXuTable* entry = find_table(version);
    if (entry == nullptr) {
        nyxus::trace_line(NYXUS_LINE_FAILURE, kQuery, pDevObj,
                          "<ERROR> Cannot found appropriate XU table,Ver=0x%04X\n", version);
        return;
    }
    pDevObj->xu_table = entry->table;
    pDevObj->xu_table_count = entry->count;
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "Using uvc_xu_table_ver_%04X \n", version);
}

int32_t MP_QueryXuVersion(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (read_version_record(pDevObj)) {
        pDevObj->xFeatureXU = 1;
        select_table(pDevObj);
        if (pDevObj->oXuCtrlVer.wExMemTag == kXuMemoryTag) {
            pDevObj->xFeatureEM = 1;
            NY_TRACE_DEV(NY_TRACE_ERROR, "   pDevObj->oXuCtrlVer.wExMemVer = 0x%04X \n",
                         pDevObj->oXuCtrlVer.wExMemVer);
            NY_TRACE_DEV(NY_TRACE_ERROR, "   pDevObj->xFeatureXU = true \n");
            NY_TRACE_DEV(NY_TRACE_ERROR, "          ->xFeatureEM = true \n");
            print_xu_table(pDevObj->xu_table, pDevObj->xu_table_count);
            NY_TRACE_DEV(NY_TRACE_ERROR, "%s", kSeparator);
            return 0;
        }
        // Firmware without the memory extension moves 8 bytes at a time whatever its version says.
    }
    pDevObj->xFeatureXU = 0;
    pDevObj->xFeatureEM = 0;
    pDevObj->xu_table = uvc_xu_table_ver_none;
    pDevObj->xu_table_count = uvc_xu_table_ver_none_count;
    NY_TRACE_DEV(NY_TRACE_ERROR, "Using uvc_xu_table_ver_none (default) \n");
    NY_TRACE_DEV(NY_TRACE_ERROR, "pDevObj->xFeatureXU = false \n");
    NY_TRACE_DEV(NY_TRACE_ERROR, "       ->xFeatureEM = false \n");
    NY_TRACE_DEV(NY_TRACE_ERROR, "%s", kSeparator);
    return 0;
}
