// SPDX-License-Identifier: Apache-2.0
// What external ROM the camera has.
#include <nyxus/device.h>
#include <nyxus/memory.h>

#include <algorithm>
#include <iterator>

#include "trace/failure.h"
#include "unit.h"

static constexpr char kQuery[] = "MP_QueryExtRom"; // the steps trace as the query
static constexpr uint32_t kHeaderAddress = 0x40;
static constexpr uint32_t kSizeUnit = 512;
static constexpr uint32_t kSpiRomBytes = 0x10000;
static constexpr uint32_t kLargestEeprom = 0x8000;
static constexpr uint8_t kLargestEepromType = 0x80;

/// The part of the ROM's firmware header that tells the ROM.
struct RomHeader {
    uint8_t bSignatureHi;
    uint8_t bSignatureLo;
    uint8_t reserved2[4];
    uint8_t size; ///< in kSizeUnit
    uint8_t reserved7[15];
    uint8_t size_larch; ///< where LARCH chips keep it
    uint8_t reserved23;
};
static_assert(sizeof(RomHeader) == 24 && offsetof(RomHeader, size_larch) == 22);

enum class Outcome { kKnown, kTryEeprom, kTryFlash, kStop };

static void use_spi(NyDevice* pDevObj)
{
    pDevObj->xSpiMode = 1;
    pDevObj->bExtRomType = EXTROM_TYPE_SPI;
}

static void use_eeprom(NyDevice* pDevObj)
{
    pDevObj->xSpiMode = 0;
    // 16 KiB and larger parts share one type, which is all that the firmware distinguishes.
    if (pDevObj->dwExtRomSize >= kLargestEeprom) {
        pDevObj->dwExtRomSize = kLargestEeprom;
        pDevObj->bExtRomType = kLargestEepromType;
    } else {
        pDevObj->bExtRomType = static_cast<uint8_t>(pDevObj->dwExtRomSize >> 7);
    }
}

/// What the controller holds about its flash, looked up in the catalogue. `rv` is the status that
/// the query goes on with.
static Outcome match_controller_info(NyDevice* pDevObj, int32_t rv)
{
    const NyFlashInfo& info = pDevObj->oFlashInfo;
    if (XU_SpiGetFlashInfo(pDevObj, &pDevObj->oFlashInfo) < 0) {
        // The query ends as if all were well: the ROM header has told enough to go on.
        NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "XU_SpiGetFlashInfo() FAILED, rv = %d \n", rv);
        return Outcome::kStop;
    }
    if (std::all_of(std::begin(info.ID), std::end(info.ID), [](uint8_t b) { return b == 0; }))
        return Outcome::kTryFlash;
    const uint8_t id[] = {info.ID[0], info.ID[1], info.ID[2]};
    if (MP_MatchFlash(pDevObj, info.bParam, id) >= 0)
        return Outcome::kKnown;
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "oFlashInfo does NOT match \n");
    return Outcome::kTryFlash;
}

static Outcome judge_header(NyDevice* pDevObj, const RomHeader& header, int32_t rv)
{
    // One matching character is enough, on purpose.
    if (header.bSignatureHi != static_cast<uint8_t>(pDevObj->szIntFwVer[0]) &&
        header.bSignatureLo != static_cast<uint8_t>(pDevObj->szIntFwVer[1])) {
        NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "ExtRom.bSignature does NOT match \n");
        return Outcome::kTryEeprom;
    }
    const bool larch = pDevObj->oBackend.family == IC_FAMILY_LARCH;
    pDevObj->dwExtRomSize = (larch ? header.size_larch : header.size) * kSizeUnit;
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "ExtRom.bSignatureHi = '%c' \n", header.bSignatureHi);
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "ExtRom.bSignatureLo = '%c' \n", header.bSignatureLo);
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "pDevObj->dwExtRomSize = 0x%X \n",
                    pDevObj->dwExtRomSize);
    if (pDevObj->oFwStatus.xSpiEnable && pDevObj->dwExtRomSize == kSpiRomBytes) {
        use_spi(pDevObj);
        return match_controller_info(pDevObj, rv);
    }
    use_eeprom(pDevObj);
    return Outcome::kKnown;
}

static int32_t identify_spi_flash(NyDevice* pDevObj)
{
    const int32_t rv = MP_IdentifyFlash(pDevObj);
    if (rv < 0) {
        nyxus::trace_bare(NYXUS_LINE_FAILURE, "<ERROR> Identify SPI flash FAILED \n");
        nyxus_rv = rv;
        return rv;
    }
    use_spi(pDevObj);
    pDevObj->dwExtRomSize = kSpiRomBytes;
    return 0;
}

static void trace_rom(const NyDevice* pDevObj)
{
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "pDevObj->bExtRomType  = 0x%02X (%s) \n",
                    pDevObj->bExtRomType, pDevObj->xSpiMode ? "SPI_MODE" : "I2C_MODE");
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "pDevObj->dwExtRomSize = %d \n", pDevObj->dwExtRomSize);
    if (!pDevObj->xSpiMode)
        return;
    const NyFlashInfo& info = pDevObj->oFlashInfo;
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "pDevObj->oFlashInfo.bParam   = 0x%02X \n",
                    info.bParam);
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "                   .bCmdCE   = 0x%02X \n",
                    info.bCmdCE);
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "                   .bCmdBE   = 0x%02X \n",
                    info.bCmdBE);
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "                   .bCmdSE   = 0x%02X \n",
                    info.bCmdSE);
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "                   .bCmdRDID = 0x%02X \n",
                    info.bCmdRDID);
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "                   .ID       = [%02X][%02X][%02X] \n",
                    info.ID[0], info.ID[1], info.ID[2]);
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "                   .bSize    = 0x%02X (%d KB)\n",
                    info.bSize, static_cast<int>(info.bSize < 26 ? 32u << info.bSize : 0));
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "                   .bTwsr    = 0x%02X (%d ms)\n",
                    info.bTwsr, info.bTwsr);
    NY_TRACE_DEV_AS(kQuery, NY_TRACE_ERROR, "                   .szName   = '%.32s' \n",
                    static_cast<const char*>(info.szName));
}

int32_t MP_QueryExtRom(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    Outcome outcome = Outcome::kTryEeprom;
    int32_t rv = 0;
    if (pDevObj->xModuleMode) {
        RomHeader header = {};
        rv = XuExtRomRead(pDevObj, kHeaderAddress, sizeof header,
                          reinterpret_cast<uint8_t*>(&header));
        if (rv < 0)
            return nyxus::pass_on(__func__, pDevObj, "XuExtRomRead()", rv);
        outcome = judge_header(pDevObj, header, rv);
    }
    if (outcome == Outcome::kStop)
        return rv;
    if (outcome == Outcome::kTryEeprom) {
        if (MP_IdentifyEeprom(pDevObj) == 0) {
            pDevObj->xSpiMode = 0;
            outcome = Outcome::kKnown;
        } else {
            outcome = Outcome::kTryFlash;
        }
    }
    if (outcome == Outcome::kTryFlash) {
        rv = identify_spi_flash(pDevObj);
        if (rv < 0)
            return rv;
    }
    trace_rom(pDevObj);
    NY_TRY(XuSetExtRomType(pDevObj, pDevObj->bExtRomType));
    return 0;
}
