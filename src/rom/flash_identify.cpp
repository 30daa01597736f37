// SPDX-License-Identifier: Apache-2.0
// Which flash part is on the bus, and the controller's own copy of its parameters.
#include <nyxus/device.h>
#include <nyxus/memory.h>
#include <nyxus/registers.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "tables/flash_catalogue.h"
#include "tables/spi_commands.h"
#include "tables/xu_version.h"
#include "trace/failure.h"
#include "unit.h"
#include "usb/xu_exchange.h"

static constexpr uint32_t kControllerInfoBytes = offsetof(NyFlashInfo, bSize);
static constexpr uint8_t kKeptByController = 0x80;
static_assert(kControllerInfoBytes == 11);

static constexpr char kReadOnlyRecord[] = "'pFlashInfo' is a read-only row of spi_flash_table";

static constexpr int kUnsupportedCommandLine = 806;
static constexpr int kInvalidCommandLine = 810;

/// How a part is asked for its ID.
struct ReadIdMethod {
    uint8_t opcode;
    uint8_t command_bytes;
    uint8_t id_bytes;
    uint8_t bParam; ///< marks the method in a flash-info record
    const char* name;
};

// clang-format off
static constexpr ReadIdMethod kIdentifyMethods[] = {
//   opcode           command id bParam  name
    {kSpiReadIdJedec, 4,      3, 0x34,  "JEDEC"},
    {kSpiReadId15,    4,      2, 0x24,  "0x15"},
    {kSpiReadIdAb,    4,      2, 0x24,  "0xAB"},
    {kSpiReadId90,    4,      2, 0x2C,  "0x90"},
};
static constexpr ReadIdMethod kCheckMethods[] = {
    {kSpiReadIdJedec, 1,      3, 0x31,  "JEDEC"},
    {kSpiReadId15,    4,      2, 0x24,  "0x15"},
    {kSpiReadIdAb,    4,      2, 0x24,  "0xAB"},
    {kSpiReadId90,    4,      2, 0x2C,  "0x90"},
};
// clang-format on

/// A 2-byte ID leaves the third byte 0.
static int32_t read_id(const char* function, NyDevice* pDevObj, const ReadIdMethod& method,
                       uint8_t (&id)[3])
{
    NY_TRACE_DEV_AS(function, NY_TRACE_ERROR,
                    "Querying Flash by SPI_CMD_RDID_%s, bParam = 0x%02X (%d byte command, %d "
                    "byte id) \n",
                    method.name, method.bParam, method.command_bytes, method.id_bytes);
    const uint8_t command[4] = {method.opcode};
    std::fill(std::begin(id), std::end(id), uint8_t{0});
    const int32_t rv = XU_SpiCmdGet(pDevObj, command, method.command_bytes, id, method.id_bytes);
    if (rv < 0) {
        const char* call =
            method.command_bytes == 1 ? "XU_SpiCmdGet(pDevObj, cmd_buf, 1, flash_id, 3)"
            : method.id_bytes == 3    ? "XU_SpiCmdGet(pDevObj, cmd_buf, 4, flash_id, 3)"
                                      : "XU_SpiCmdGet(pDevObj, cmd_buf, 4, flash_id, 2)";
        return nyxus::pass_on(function, call, rv);
    }
    if (method.id_bytes == 3) {
        NY_TRACE_DEV_AS(function, NY_TRACE_ERROR, "   flash_id[] = {0x%02X, 0x%02X, 0x%02X} \n",
                        id[0], id[1], id[2]);
    } else {
        NY_TRACE_DEV_AS(function, NY_TRACE_ERROR, "   flash_id[] = {0x%02X, 0x%02X} \n", id[0],
                        id[1]);
    }
    return 0;
}

int32_t XU_SpiGetFlashInfo(NyDevice* pDevObj, NyFlashInfo* pFlashInfo)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pFlashInfo);
    if (nyxus::is_in_flash_catalogue(pFlashInfo))
        return NY_FAIL(NYXUS_E_RANGE, kReadOnlyRecord);
    NY_TRACE_DEV(NY_TRACE_ERROR, "Getting flash info from backend variable... \n");
    auto* record = reinterpret_cast<uint8_t*>(pFlashInfo);
    if (pDevObj->oXuCtrlVer.wVersion != kXuVersionStatus)
        return XuRegRead(pDevObj, REG_FLASH_INFO, kControllerInfoBytes, record);
    NY_TRY_AS(
        "UvcXuCtrlQueryNYXU(pDevObj, ZRV_XU_FLASH_INFO, UVC_GET_CUR, pFlashInfo)",
        nyxus::xu_exchange(pDevObj, ZRV_XU_FLASH_INFO, UVC_GET_CUR, record, kControllerInfoBytes));
    return 0;
}

int32_t XU_SpiSetFlashInfo(NyDevice* pDevObj, NyFlashInfo* pFlashInfo)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pFlashInfo);
    if (pDevObj->oXuCtrlVer.wVersion == kXuVersionStatus) {
        if (nyxus::is_in_flash_catalogue(pFlashInfo))
            return NY_FAIL(NYXUS_E_RANGE, kReadOnlyRecord);
        // Such controllers keep their own flash information: mark the record, send nothing.
        pFlashInfo->abExtParam[0] |= kKeptByController;
        return 0;
    }
    NY_TRACE_DEV(NY_TRACE_ERROR, "Setting flash info to backend variable... \n");
    return XuRegWrite(pDevObj, REG_FLASH_INFO, kControllerInfoBytes,
                      reinterpret_cast<const uint8_t*>(pFlashInfo));
}

int32_t MP_IdentifyFlash(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NyFlashInfo& info = pDevObj->oFlashInfo;
    if (info.bCmdRDID == 0)
        return NY_FAIL_AT(kInvalidCommandLine, NYXUS_E_INVALID, "Command Read ID is invalid");
    const auto* method =
        std::find_if(std::begin(kIdentifyMethods), std::end(kIdentifyMethods),
                     [&](const ReadIdMethod& row) { return row.opcode == info.bCmdRDID; });
    if (method == std::end(kIdentifyMethods)) {
        return NY_FAIL_AT(kUnsupportedCommandLine, NYXUS_E_UNSUPPORTED,
                          "Command Read ID is not support");
    }

    uint8_t flash_id[3];
    const int32_t rv = read_id(__func__, pDevObj, *method, flash_id);
    if (rv < 0)
        return rv;
    if (MP_MatchFlash(pDevObj, info.bParam, flash_id) < 0)
        std::memcpy(info.ID, flash_id, sizeof info.ID); // an unlisted part keeps its own ID
    return XU_SpiSetFlashInfo(pDevObj, &info);
}

int32_t MP_CheckFlashIsSupported(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const NyFlashInfo& info = pDevObj->oFlashInfo;
    for (const ReadIdMethod& method : kCheckMethods) {
        uint8_t flash_id[3];
        const int32_t rv = read_id(__func__, pDevObj, method, flash_id);
        if (rv < 0)
            return rv;
        if (info.bParam == method.bParam && std::memcmp(info.ID, flash_id, sizeof info.ID) == 0)
            return 1;
    }
    return 0;
}
