// SPDX-License-Identifier: Apache-2.0
#include <nyxus/device.h>
#include <nyxus/memory.h>
#include <nyxus/production.h>
#include <nyxus/rom.h>
#include <nyxus/trace.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "trace/failure.h"
#include "trace/progress.h"
#include "unit.h"

static constexpr uint32_t kHeaderBytes = 0x40;
static constexpr uint32_t kSignatureEnd = 0x42;
static constexpr uint32_t kCompareDumpBytes = 512;
static constexpr char kCompareFile[] = "dump.bin";

static int32_t erase_rom(const char* function, NyDevice* pDevObj)
{
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> External ROM erasing... \n");
    const int32_t rv = XU_SpiEraseChip(pDevObj);
    if (rv < 0)
        return nyxus::pass_on(function, "XU_SpiEraseChip(pDevObj)", rv);
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> External ROM erased \n");
    return 0;
}

/// Passes `rv` on after a failure line of the upgrade.
static int32_t upgrade_failed(const NyDevice* pDevObj, const char* line, int32_t rv)
{
    nyxus_rv = rv;
    NY_TRACE_DEV_AS("MP_FwUpgrade", NY_TRACE_ERROR, "%s", line);
    return rv;
}

static bool is_image_for(const NyDevice* pDevObj)
{
    return nyxus_fw_bin[0x40] == static_cast<uint8_t>(pDevObj->szIntFwVer[0]) &&
           nyxus_fw_bin[0x41] == static_cast<uint8_t>(pDevObj->szIntFwVer[1]);
}

static bool has_possible_sizes(const uint8_t* mfi_bin)
{
    return nyxus_fw_bin_size >= kSignatureEnd && nyxus_fw_bin_size <= sizeof nyxus_fw_bin &&
           (mfi_bin == nullptr || nyxus_mfi_bin_size <= sizeof nyxus_mfi_bin);
}

/// MFi image, body, and the header last: until it is there the ROM holds no valid firmware.
static int32_t program_rom(NyDevice* pDevObj, const uint8_t* mfi_bin)
{
    static constexpr char kFunction[] = "MP_FwUpgrade";
    const uint32_t body_bytes = nyxus_fw_bin_size - kHeaderBytes;
    const nyxus::TransferProgress progress((mfi_bin != nullptr ? nyxus_mfi_bin_size : 0) +
                                           body_bytes + kHeaderBytes);
    int32_t rv = 0;
    if (mfi_bin != nullptr) {
        NY_TRACE_DEV_AS(kFunction, NY_TRACE_ERROR,
                        "Programming MFi BIN (0x6000 to 0x%04X), size = 0x%04X \n",
                        NYXUS_MFI_ROM_ADDR + nyxus_mfi_bin_size, nyxus_mfi_bin_size);
        rv = XuExtRomWrite(pDevObj, NYXUS_MFI_ROM_ADDR, nyxus_mfi_bin_size, mfi_bin);
        if (rv < 0)
            return upgrade_failed(pDevObj, "ERROR: MFi BIN programming FAILED !!! \n", rv);
    }
    NY_TRACE_DEV_AS(kFunction, NY_TRACE_ERROR,
                    "Programming firmware body (0x0040 to 0x%04X), size = 0x%04X \n",
                    nyxus_fw_bin_size, body_bytes);
    rv = XuExtRomWrite(pDevObj, kHeaderBytes, body_bytes, nyxus_fw_bin + kHeaderBytes);
    if (rv < 0)
        return upgrade_failed(pDevObj, "ERROR: Firmware body programming FAILED !!! \n", rv);

    NY_TRACE_DEV_AS(kFunction, NY_TRACE_ERROR,
                    "Programming firmware checksum (0x0000 to 0x0040), size = 0x0040 \n");
    rv = XuExtRomWrite(pDevObj, 0, kHeaderBytes, nyxus_fw_bin);
    if (rv < 0)
        return upgrade_failed(pDevObj, "ERROR: Firmware header programming FAILED !!! \n", rv);
    return 0;
}

int32_t MP_FwUpgrade(NyDevice* pDevObj, const uint8_t* mfi_bin)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NyPrintTimeStart();
    NY_TRACE_DEV(NY_TRACE_ERROR, "pDevObj->szIntFwVer = '%.11s' \n", pDevObj->szIntFwVer);
    NY_TRACE_DEV(NY_TRACE_ERROR, "       nyxus_fw_bin[0x40] = '%c' \n", nyxus_fw_bin[0x40]);
    NY_TRACE_DEV(NY_TRACE_ERROR, "       nyxus_fw_bin[0x41] = '%c' \n", nyxus_fw_bin[0x41]);
    if (!is_image_for(pDevObj))
        return NY_FAIL(NYXUS_E_MISMATCH, "Firmware signature not match");
    if (!has_possible_sizes(mfi_bin))
        return NY_FAIL(NYXUS_E_RANGE, "Firmware image size out of range");

    int32_t rv = MP_ExtRomWriteEnable(pDevObj, pDevObj->bExtRomType, true);
    if (rv < 0)
        return upgrade_failed(pDevObj, "ERROR: External ROM write enable failed !!! \n", rv);
    if (pDevObj->xSpiMode) {
        rv = erase_rom(__func__, pDevObj);
        if (rv < 0)
            return rv;
    } else {
        NY_TRACE_DEV(NY_TRACE_ERROR, "INFO: Set I2C write cycle time at least 5ms \n");
    }
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> External ROM programming... \n");
    rv = program_rom(pDevObj, mfi_bin);
    if (rv < 0)
        return rv;

    // The firmware is complete, so a ROM that stays unlocked does not fail the upgrade.
    rv = MP_ExtRomWriteEnable(pDevObj, pDevObj->bExtRomType, false);
    if (rv < 0)
        upgrade_failed(pDevObj, "ERROR: External ROM write disable failed !!! \n", rv);
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> Upgrade firmware OK \n");
    NyPrintTimeInterval();
    return 0;
}

int32_t MP_FwErase(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NyPrintTimeStart();
    int32_t rv = MP_ExtRomWriteEnable(pDevObj, pDevObj->bExtRomType, true);
    if (rv < 0) {
        nyxus_rv = rv;
        NY_TRACE(NY_TRACE_ERROR, "ERROR: External ROM write enable failed !!! \n");
        return rv;
    }
    if (pDevObj->xSpiMode) {
        rv = erase_rom(__func__, pDevObj);
        if (rv < 0)
            return rv;
    }
    rv = MP_ExtRomWriteEnable(pDevObj, pDevObj->bExtRomType, false);
    if (rv < 0) {
        nyxus_rv = rv;
        NY_TRACE(NY_TRACE_ERROR, "WARNING: External ROM write disable failed !!! \n");
    }
    NyPrintTimeInterval();
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> Firmware erase succeed \n");
    return rv;
}

/// 0, or the errno of the step that failed.
static int write_file(std::FILE* file, const uint8_t* data, size_t size)
{
    int error = std::fwrite(data, 1, size, file) == size ? 0 : errno;
    if (std::fclose(file) != 0 && error == 0)
        error = errno;
    return error;
}

int32_t MP_FwDump(NyDevice* pDevObj, const char* path, uint32_t size)
{
    NY_REQUIRE_DEVICE(pDevObj);
    uint8_t buffer[NYXUS_FW_BIN_CAPACITY] = {};
    if (size > sizeof buffer)
        return NY_FAIL(NYXUS_E_RANGE, "Dump size out of range");
    NY_REQUIRE(path);
    NyPrintTimeStart();
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> External ROM dumping... \n");
    const int32_t rv = XuExtRomRead(pDevObj, 0, size & 0xFFFF, buffer);
    if (rv < 0) {
        nyxus_rv = rv;
        NY_TRACE(NY_TRACE_ERROR, "ERROR: External ROM dump failed !!! \n");
        return rv;
    }
    std::FILE* file = std::fopen(path, "w+");
    if (file == nullptr) {
        const int error = errno;
        NY_TRACE(NY_TRACE_ERROR, "ERROR: Firmware BIN file open failed !!! \n");
        return -error; // a plain errno, unlike every other file failure
    }
    const int error = write_file(file, buffer, size);
    if (error != 0) {
        NY_TRACE(NY_TRACE_ERROR, "ERROR: Firmware BIN file write failed !!! \n");
        return -error;
    }
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> Firmware dump succeed \n");
    NyPrintTimeInterval();
    return 0;
}

static bool equals_image(const NyDevice* pDevObj, const uint8_t* dump, uint32_t size)
{
    static constexpr char kFunction[] = "MP_FwCompare";
    bool equal = true;
    for (uint32_t i = 0; i < size; ++i) {
        if (dump[i] == nyxus_fw_bin[i])
            continue;
        equal = false;
        NY_TRACE_DEV_AS(kFunction, NY_TRACE_ERROR, "ERROR: External ROM compare failed !!! \n");
        NY_TRACE_DEV_AS(kFunction, NY_TRACE_ERROR,
                        "nyxus_fw_bin[0x%04X] = 0x%02X, fw_dmp[0x%04X] = 0x%02X \n", i,
                        nyxus_fw_bin[i], i, dump[i]);
    }
    return equal;
}

int32_t MP_FwCompare(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    uint8_t fw_dmp[UINT16_MAX];
    std::memset(fw_dmp, 0xFF, sizeof fw_dmp);
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> External ROM reading... \n");
    const int32_t rv = XuExtRomRead(pDevObj, 0, nyxus_fw_bin_size, fw_dmp);
    if (rv < 0) {
        nyxus_rv = rv;
        NY_TRACE_DEV(NY_TRACE_ERROR, "ERROR: External ROM read failed !!! \n");
    }
    NyPrintBuf(0, fw_dmp, kCompareDumpBytes, true);
    // The copy is for people to look at: a short one fails nothing, but one that cannot be made
    // does.
    std::FILE* file = std::fopen(kCompareFile, "w");
    const int32_t opened =
        file != nullptr ? 0 : NY_FAIL_SYSTEM(errno, "Open bin file '%s' FAILED", kCompareFile);
    if (file == nullptr || write_file(file, fw_dmp, nyxus_fw_bin_size) != 0)
        NY_TRACE_DEV(NY_TRACE_ERROR, "ERROR: Dump file write failed !!! \n");
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> External ROM comparing... \n");
    const uint32_t compared = std::min<uint32_t>(nyxus_fw_bin_size, sizeof nyxus_fw_bin);
    const bool equal = equals_image(pDevObj, fw_dmp, compared);
    if (opened < 0) // the code goes with the message, which is the latest failure's
        return opened;
    return equal ? rv : NYXUS_E_FAILED;
}

int32_t MP_FwRevision(NyDevice* pDevObj, uint16_t* pwExtFwVer, char* szSetfileVer)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pwExtFwVer);
    NY_REQUIRE(szSetfileVer);
    constexpr size_t kTextBytes = 12;
    *pwExtFwVer = pDevObj->wExtFwVer;
    const size_t length = strnlen(pDevObj->szSetfileVer, sizeof pDevObj->szSetfileVer);
    std::memset(szSetfileVer, 0, kTextBytes);
    std::memcpy(szSetfileVer, pDevObj->szSetfileVer, length);
    NY_TRACE(NY_TRACE_ERROR, "Ext. FW ver = 0x%04X \n", pDevObj->wExtFwVer);
    NY_TRACE(NY_TRACE_ERROR, "Setfile ver = %s \n", szSetfileVer);
    return 0;
}
