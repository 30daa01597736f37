// SPDX-License-Identifier: Apache-2.0
#include "operations.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace fuzz {

namespace {

/// Caller's memory of exactly this size, full of a number.
class Memory {
public:
    explicit Memory(size_t size, uint8_t value = 0) : bytes_(size, value) {}
    operator uint8_t*() { return bytes_.data(); }
    operator char*() { return reinterpret_cast<char*>(bytes_.data()); }
    template <typename Record>
    Record* as()
    {
        return reinterpret_cast<Record*>(bytes_.data());
    }

private:
    std::vector<uint8_t> bytes_;
};

/// A record of its own on the heap.
template <typename Record>
class On {
public:
    explicit On(uint8_t value) : memory_(sizeof(Record), value) {}
    operator Record*() { return memory_.as<Record>(); }

private:
    Memory memory_;
};

size_t control_length(NyDevice* device, uint8_t selector)
{
    return static_cast<size_t>(std::max(nyxus_control_length(device, selector), 0));
}

size_t h264_length(uint8_t selector)
{
    for (int32_t i = 0; i < uvc_xu_table_h264_count; ++i)
        if (uvc_xu_table_h264[i].selector == selector)
            return uvc_xu_table_h264[i].length;
    return 0;
}

/// Longer ranges take more transfers than any camera here answers, and memory in their length.
uint32_t range_length(const Numbers& n)
{
    return n.b | (n.c & 3u) << 16;
}

void load_images(const NyDevice* device, const Numbers& n)
{
    std::memset(nyxus_fw_bin, n.c, sizeof nyxus_fw_bin);
    std::memcpy(nyxus_fw_bin + 0x40, device->szIntFwVer, 2);
    nyxus_fw_bin_size = n.a;
    nyxus_mfi_bin_size = n.b;
}

// clang-format off
constexpr Operation kOperations[] = {
#define OPERATION(name, ...) {#name, [](NyDevice* d, [[maybe_unused]] const Numbers& n) { (void)name(__VA_ARGS__); }}
    // probe
    OPERATION(DEV_Init, d),
    OPERATION(MP_QueryXuVersion, d),
    OPERATION(XuGetVersion, d, On<NyXuVersion>(n.c)),
    OPERATION(XuGetIntFwVer, d, Memory(11)),
    OPERATION(requireXUSizeTable, d->usb_handle, n.c, d->xu_table, d->xu_table_count),
    OPERATION(MP_QueryChipInfo, d),
    OPERATION(MP_QueryModuleInfo, d),
    OPERATION(XU_FwGetStatus, d, On<NyFirmwareStatus>(n.c)),
    OPERATION(XU_ExtFwGetVer, d, Memory(2).as<uint16_t>(), Memory(2).as<uint16_t>()),
    OPERATION(XU_ChipReset, d),
    OPERATION(DEV_SoftReset, d),
    OPERATION(MP_QueryExtRom, d),
    OPERATION(print_xu_table, d->xu_table, d->xu_table_count),
    // single requests
    OPERATION(UvcXuCtrlQuery, d, static_cast<uint8_t>(n.a), static_cast<uint8_t>(n.a >> 8), n.c, n.b, Memory(n.b)),
    OPERATION(UvcXuCtrlQueryNYXU, d, n.a, n.c, Memory(control_length(d, static_cast<uint8_t>(n.a)))),
    OPERATION(UvcXuCtrlQueryH264, d, n.a, n.c, Memory(h264_length(static_cast<uint8_t>(n.a)))),
    OPERATION(XuSetWrapper, d, n.a, On<NyWrapper>(n.c)),
    OPERATION(XuGetWrapper, d, n.a, On<NyWrapper>(n.c)),
    OPERATION(XuSetWrapper512, d, On<NyWrapper512>(n.c)),
    OPERATION(XuGetWrapper512, d, On<NyWrapper512>(n.c)),
    OPERATION(XuGetFlip, d, Memory(1)),
    OPERATION(XuSetFlip, d, n.c),
    OPERATION(XuGetMirror, d, Memory(1)),
    OPERATION(XuSetMirror, d, n.c),
    OPERATION(XuGetSetfileVer, d, Memory(std::max<size_t>(control_length(d, ZRV_XU_SETFILE_VER), 11))),
    OPERATION(XuSetExtRomType, d, n.c),
    OPERATION(XuGetWriteProtect, d, Memory(1)),
    OPERATION(XuSetWriteProtect, d, n.c),
    OPERATION(XuGetOsd, d, Memory(18)),
    OPERATION(XuSetOsd, d, Memory(18, n.c)),
    OPERATION(XuSetFlashBlockIndex, d, n.a),
    OPERATION(XuGetSpiStatus, d, Memory(1)),
    OPERATION(XuSetSpiStatus, d, n.c),
    OPERATION(XuExtRomErase, d),
    // memory
    OPERATION(XuCtrlSeqContext, d, static_cast<uint8_t>(n.c & 0x1F), static_cast<uint8_t>(n.c & 0xE0), n.a, n.b, Memory(n.b)),
    OPERATION(XuCtrlSeqContext512, d, n.c, n.a, n.b, Memory(n.b)),
    OPERATION(XuRegRead, d, n.a, n.b, Memory(n.b)),
    OPERATION(XuRegWrite, d, n.a, n.b, Memory(n.b, n.c)),
    OPERATION(XuSensorRead, d, n.a, n.b, Memory(n.b)),
    OPERATION(XuSensorWrite, d, n.a, n.b, Memory(n.b, n.c)),
    OPERATION(XuMcuDataRead, d, n.a, n.b, Memory(n.b & 0xFF)),
    OPERATION(XuMcuDataWrite, d, n.a, n.b, Memory(n.b & 0xFF, n.c)),
    OPERATION(XuExtRomRead, d, n.wide(), range_length(n), Memory(range_length(n))),
    OPERATION(XuExtRomWrite, d, n.wide(), range_length(n), Memory(range_length(n), n.c)),
    OPERATION(XuExtRomRead512, d, n.a, n.b, Memory(n.b)),
    OPERATION(XuExtRomReadDW, d, n.wide(), range_length(n), Memory(range_length(n))),
    OPERATION(XuExtRomRead512DW, d, n.wide(), range_length(n), Memory(range_length(n))),
    OPERATION(VELKA_DwAddrRead, d, n.c, n.odd() ? ZRV_XU_EXT_ROM : ZRV_XU_Read_EXT_ROM_512, n.wide(), range_length(n), Memory(range_length(n))),
    // SPI flash
    OPERATION(MP_MatchFlash, d, n.c, Memory(3, n.c)),
    OPERATION(MP_IdentifyEeprom, d),
    OPERATION(MP_IdentifyFlash, d),
    {"MP_IdentifyFlash, preset", [](NyDevice* d, const Numbers& n) {
        d->oFlashInfo.bCmdRDID = n.c;
        (void)MP_IdentifyFlash(d);
    }},
    OPERATION(MP_CheckFlashIsSupported, d),
    OPERATION(XU_SpiCmdGet, d, Memory(n.a & 0xFF, n.c), static_cast<uint8_t>(n.a), Memory(n.b & 0xFF), static_cast<uint8_t>(n.b)),
    OPERATION(XU_SpiCmdSet, d, Memory(n.a & 0xFF, n.c), static_cast<uint8_t>(n.a)),
    OPERATION(XU_SpiWaitStatus, d, static_cast<uint8_t>(n.a), static_cast<uint8_t>(n.a >> 8), n.b),
    OPERATION(XU_SpiWaitBusReady, d, n.b),
    OPERATION(XU_SpiGetFlashInfo, d, On<NyFlashInfo>(n.c)),
    OPERATION(XU_SpiSetFlashInfo, d, On<NyFlashInfo>(n.c)),
    OPERATION(XU_SpiCmdErase, d, n.a, n.c),
    OPERATION(XU_SpiCmdEraseDW, d, n.wide(), n.c),
    OPERATION(XU_SpiEraseBlockById, d, n.a),
    OPERATION(XU_SpiEraseChip, d),
    OPERATION(XU_ExtRomEraseDWORD, d, n.wide(), range_length(n)),
    OPERATION(XU_SpiBlockProtect, d, n.odd()),
    OPERATION(XU_SpiBlockProtect_for_customer_IB, d, n.odd()),
    OPERATION(MP_ExtRomWriteEnable, d, d->bExtRomType, n.odd()),
    OPERATION(XU_SpiGetReservedArea, d, n.b, Memory(n.b)),
    OPERATION(XU_SpiSetReservedArea, d, n.b, Memory(n.b, n.c)),
    // production
    {"MP_FwUpgrade", [](NyDevice* d, const Numbers& n) {
        load_images(d, n);
        (void)MP_FwUpgrade(d, n.odd() ? nyxus_mfi_bin : nullptr);
    }},
    OPERATION(MP_FwErase, d),
    OPERATION(MP_FwDump, d, "/dev/null", n.b),
    {"MP_FwCompare", [](NyDevice* d, const Numbers& n) {
        load_images(d, n);
        (void)MP_FwCompare(d);
    }},
    OPERATION(MP_FwRevision, d, Memory(2).as<uint16_t>(), Memory(12)),
    // H.264
    {"nyxus_h264_standard_order", [](NyDevice*, const Numbers& n) { nyxus_h264_standard_order = n.c; }},
    OPERATION(H264GetRateCtrlMode, d, Memory(3)),
    OPERATION(H264SetRateCtrlMode, d, Memory(3, n.c)),
    OPERATION(H264SetNextFrameType, d, Memory(4, n.c)),
    OPERATION(H264GetVersion, d, Memory(2)),
    OPERATION(H264Reset, d, Memory(2, n.c)),
    OPERATION(H264GetQpSteps, d, Memory(5)),
    OPERATION(H264SetQpSteps, d, Memory(5, n.c)),
    OPERATION(H264GetBitrate, d, On<H264BitrateLayers>(n.c)),
    OPERATION(H264SetBitrate, d, On<H264BitrateLayers>(n.c)),
    OPERATION(H264GetIFramePeriod, d, Memory(2).as<uint16_t>()),
    OPERATION(H264SetIFramePeriod, d, Memory(2, n.c).as<uint16_t>()),
    OPERATION(H264GetFormat, d, Memory(1)),
    OPERATION(H264SetFormat, d, n.c),
    // OSD
    OPERATION(XU_OsdSetEnable, d, n.c),
    OPERATION(XU_OsdGetEnable, d, Memory(1)),
    OPERATION(XU_OsdReset, d),
    OPERATION(XU_OsdSetHeader, d),
    OPERATION(XU_OsdSetDatetime, d, On<OsdDatetime>(n.c)),
    OPERATION(XU_OsdGetDatetime, d, On<OsdDatetime>(n.c)),
    OPERATION(XU_OsdSetString, d, n.c, Memory(16, n.c)),
    OPERATION(XU_OsdGetString, d, n.c, Memory(16)),
    OPERATION(XU_OsdSetWindow, d, On<OsdWindow>(n.c)),
    OPERATION(XU_OsdGetWindow, d, On<OsdWindow>(n.c)),
    OPERATION(XU_OsdSetColor, d, On<OsdColor>(n.c)),
    OPERATION(XU_OsdGetColor, d, On<OsdColor>(n.c)),
    OPERATION(XU_OsdEnableDatetime, d, n.c),
    OPERATION(XU_OsdEnableTransparent, d, n.c),
    // peripherals
    OPERATION(XU_GpioSet, d, n.a, n.b),
    OPERATION(XU_I2cConfigGet, d, Memory(1)),
    OPERATION(XU_I2cConfigSet, d, Memory(1, n.c)),
    OPERATION(XU_I2cGet, d, n.a, n.c, Memory(n.c)),
    OPERATION(XU_I2cSet, d, n.a, n.c, Memory(n.c)),
    OPERATION(XU_LedStatusGet, d, n.c, Memory(1)),
    OPERATION(XU_LedStatusSet, d, n.c, static_cast<uint8_t>(n.a)),
    OPERATION(XU_MjpgQGainGet, d, Memory(1)),
    OPERATION(XU_MjpgQGainSet, d, n.a),
    OPERATION(XU_MotionDetectGet, d, Memory(4)),
    OPERATION(XU_MotionDetectSet, d, Memory(4, n.c)),
    OPERATION(XU_MotionDetectPoll, d, Memory(1)),
    // fingerprint boards
    OPERATION(SG_SetAutoPower, d, n.a),
    OPERATION(SG_SetSensorResetInit, d),
    OPERATION(SG_SetSensorResetPin, d),
    OPERATION(SG_LedControl, d, n.a),
    OPERATION(SG_TouchStatus, d, Memory(1)),
    OPERATION(SG_UsbSpeed, d, Memory(1)),
    OPERATION(SG_StreamModeEnable, d),
    OPERATION(SG_SnapshotModeEnable, d),
    OPERATION(SG_SnapshotModeTrigger, d),
    OPERATION(SG_EepromRead, d, n.a, n.b, Memory(n.b)),
    OPERATION(SG_EepromWrite, d, n.a, n.b, Memory(n.b, n.c)),
    OPERATION(SG_XuExtRomWrite, d, n.a, n.b, Memory(n.b, n.c)),
};
// clang-format on

} // namespace

std::span<const Operation> operations()
{
    return kOperations;
}

} // namespace fuzz
