// SPDX-License-Identifier: Apache-2.0
#include "all_functions.h"

#include <algorithm>
#include <array>
#include <limits>
#include <type_traits>
#include <utility>

namespace {

/// Memory that every other pointer leads to; 0, so that it is an empty text, too.
alignas(64) std::array<uint8_t, 1 << 16> memory;

template <typename T>
T argument(const Host& host, int position)
{
    if constexpr (std::is_same_v<T, NyDevice*>) {
        return position == host.null_at ? nullptr : host.device;
    } else if constexpr (std::is_same_v<T, libusb_device_handle*>) {
        return position == host.null_at ? nullptr : host.device->usb_handle;
    } else if constexpr (std::is_same_v<T, NyFrameCallback>) {
        return position == host.null_at ? nullptr : +[](uvc_frame_t*, VideoStreamParam*) {};
    } else if constexpr (std::is_pointer_v<T>) {
        return position == host.null_at ? nullptr
                                        : reinterpret_cast<T>(static_cast<void*>(memory.data()));
    } else {
        return static_cast<T>(
            std::min<uint64_t>(host.number, static_cast<uint64_t>(std::numeric_limits<T>::max())));
    }
}

template <typename... A, size_t... I>
int32_t invoke(int32_t (*function)(A...), const Host& host, std::index_sequence<I...>)
{
    return function(argument<A>(host, static_cast<int>(I))...);
}

template <typename... A>
Function describe(const char* name, int32_t (*function)(A...))
{
    Function described{name,
                       [function](const Host& host) {
                           memory.fill(0);
                           return invoke(function, host, std::index_sequence_for<A...>());
                       },
                       {},
                       (std::is_integral_v<A> || ...),
                       (std::is_same_v<A, NyDevice*> || ...)};
    const std::array<bool, sizeof...(A)> is_pointer{std::is_pointer_v<A>...};
    for (int position = 0; position < static_cast<int>(is_pointer.size()); ++position) {
        if (is_pointer[static_cast<size_t>(position)])
            described.pointers.push_back(position);
    }
    return described;
}

} // namespace

#define FUNCTION(name) describe(#name, name)

// clang-format off
const std::vector<Function> all_functions = {
    FUNCTION(XuSetWrapper), FUNCTION(XuGetWrapper), FUNCTION(XuGetFlip), FUNCTION(XuSetFlip),
    FUNCTION(XuGetMirror), FUNCTION(XuSetMirror), FUNCTION(XuGetSetfileVer),
    FUNCTION(XuSetExtRomType), FUNCTION(XuGetWriteProtect), FUNCTION(XuSetWriteProtect),
    FUNCTION(XuGetOsd), FUNCTION(XuSetOsd), FUNCTION(XuSetFlashBlockIndex),
    FUNCTION(XuGetSpiStatus), FUNCTION(XuSetSpiStatus), FUNCTION(XuExtRomErase),
    FUNCTION(XuRegRead), FUNCTION(XuRegWrite), FUNCTION(XuSensorRead), FUNCTION(XuSensorWrite),
    FUNCTION(XuMcuDataRead), FUNCTION(XuMcuDataWrite), FUNCTION(XuExtRomRead),
    FUNCTION(XuExtRomWrite), FUNCTION(XuGetWrapper512), FUNCTION(XuSetWrapper512),
    FUNCTION(XuCtrlSeqContext), FUNCTION(XuCtrlSeqContext512), FUNCTION(XuExtRomRead512),
    FUNCTION(XuExtRomReadDW), FUNCTION(XuExtRomRead512DW), FUNCTION(VELKA_DwAddrRead),
    FUNCTION(MP_QueryChipInfo), FUNCTION(MP_QueryModuleInfo), FUNCTION(XU_FwGetStatus),
    FUNCTION(XU_ExtFwGetVer), FUNCTION(XU_ChipReset), FUNCTION(DEV_SoftReset), FUNCTION(DEV_Init),
    FUNCTION(XuGetVersion), FUNCTION(XuGetIntFwVer), FUNCTION(MP_QueryXuVersion),
    FUNCTION(UvcXuCtrlQueryNYXU), FUNCTION(UvcXuCtrlQuery), FUNCTION(xioctl_usb),
    FUNCTION(MP_MatchFlash), FUNCTION(MP_IdentifyEeprom), FUNCTION(MP_IdentifyFlash),
    FUNCTION(MP_QueryExtRom), FUNCTION(MP_CheckFlashIsSupported), FUNCTION(XU_SpiCmdGet),
    FUNCTION(XU_SpiCmdSet), FUNCTION(XU_SpiWaitStatus), FUNCTION(XU_SpiWaitBusReady),
    FUNCTION(XU_SpiGetFlashInfo), FUNCTION(XU_SpiSetFlashInfo), FUNCTION(XU_SpiCmdErase),
    FUNCTION(XU_SpiCmdEraseDW), FUNCTION(XU_SpiEraseBlockById), FUNCTION(XU_SpiEraseChip),
    FUNCTION(XU_ExtRomEraseDWORD), FUNCTION(XU_SpiBlockProtect),
    FUNCTION(XU_SpiBlockProtect_for_customer_IB), FUNCTION(MP_ExtRomWriteEnable),
    FUNCTION(XU_SpiGetReservedArea), FUNCTION(XU_SpiSetReservedArea),
    FUNCTION(MP_FwUpgrade), FUNCTION(MP_FwErase), FUNCTION(MP_FwDump), FUNCTION(MP_FwCompare),
    FUNCTION(MP_FwRevision), FUNCTION(UvcXuCtrlQueryH264), FUNCTION(H264GetRateCtrlMode),
    FUNCTION(H264SetRateCtrlMode), FUNCTION(H264SetNextFrameType), FUNCTION(H264GetVersion),
    FUNCTION(H264Reset), FUNCTION(H264GetQpSteps), FUNCTION(H264SetQpSteps),
    FUNCTION(H264GetBitrate), FUNCTION(H264SetBitrate), FUNCTION(H264GetIFramePeriod),
    FUNCTION(H264SetIFramePeriod), FUNCTION(H264GetFormat), FUNCTION(H264SetFormat),
    FUNCTION(XU_OsdSetEnable), FUNCTION(XU_OsdGetEnable), FUNCTION(XU_OsdReset),
    FUNCTION(XU_OsdSetHeader), FUNCTION(XU_OsdSetDatetime), FUNCTION(XU_OsdGetDatetime),
    FUNCTION(XU_OsdSetString), FUNCTION(XU_OsdGetString), FUNCTION(XU_OsdSetWindow),
    FUNCTION(XU_OsdGetWindow), FUNCTION(XU_OsdSetColor), FUNCTION(XU_OsdGetColor),
    FUNCTION(XU_OsdEnableDatetime), FUNCTION(XU_OsdEnableTransparent), FUNCTION(XU_GpioSet),
    FUNCTION(XU_I2cConfigGet), FUNCTION(XU_I2cConfigSet), FUNCTION(XU_I2cGet), FUNCTION(XU_I2cSet),
    FUNCTION(XU_LedStatusGet), FUNCTION(XU_LedStatusSet), FUNCTION(XU_MjpgQGainGet),
    FUNCTION(XU_MjpgQGainSet), FUNCTION(XU_MotionDetectGet), FUNCTION(XU_MotionDetectSet),
    FUNCTION(XU_MotionDetectPoll), FUNCTION(SG_SetAutoPower), FUNCTION(SG_SetSensorResetInit),
    FUNCTION(SG_SetSensorResetPin), FUNCTION(SG_LedControl), FUNCTION(SG_TouchStatus),
    FUNCTION(SG_UsbSpeed), FUNCTION(SG_StreamModeEnable), FUNCTION(SG_SnapshotModeEnable),
    FUNCTION(SG_SnapshotModeTrigger), FUNCTION(SG_EepromRead), FUNCTION(SG_EepromWrite),
    FUNCTION(SG_XuExtRomWrite), FUNCTION(startVideoStream), FUNCTION(startVideoStream_snapshot),
    FUNCTION(nyxus_list_formats), FUNCTION(nyxus_list_controls), FUNCTION(nyxus_get_control),
    FUNCTION(nyxus_set_control), FUNCTION(LIB_NyxusGetVersion), FUNCTION(LIB_NyxusGetConfig), FUNCTION(LIB_NyxusSetConfig),
    FUNCTION(HexStr2Buf), FUNCTION(check_base_char), FUNCTION(MP_BinGetRealSize),
    FUNCTION(MP_BinLoadFromFile), FUNCTION(MP_BinPrintMFiInfo), FUNCTION(MP_BinSetSerialNum),
};
// clang-format on
