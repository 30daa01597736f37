# SPDX-License-Identifier: Apache-2.0
"""The C interface: libraries, records, functions.

The declarations are C, and the test test_abi.py compiles them together with the headers, so that
neither they nor the records can drift from them.
"""

import ctypes
import os
import re
from ctypes import (POINTER, Structure, c_char, c_char_p, c_int, c_int32, c_int64, c_size_t, c_uint8,
                    c_uint16, c_uint32, c_uint64, c_void_p)
from typing import Any


class NyBackend(Structure):
    _fields_ = [("chip_id", c_uint32), ("family", c_uint32), ("signature", c_char * 4),
                ("name", c_char * 32), ("bBondIdex", c_uint32)]


class NyFirmwareStatus(Structure):
    _fields_ = [("xSpiEnable", c_uint8), ("xExtFwExist", c_uint8), ("xSetfileExist", c_uint8),
                ("reserved", c_uint8)]


class NyFlashInfo(Structure):
    _pack_ = 1
    _fields_ = [("bParam", c_uint8), ("bCmdCE", c_uint8), ("bCmdBE", c_uint8), ("bCmdSE", c_uint8),
                ("bCmdRDID", c_uint8), ("ID", c_uint8 * 3), ("abExtParam", c_uint8 * 3),
                ("bSize", c_uint8), ("bTwsr", c_uint8), ("szName", c_char * 32)]


class NyXuVersion(Structure):
    _pack_ = 1
    _fields_ = [("wPrefix", c_uint16), ("wVersion", c_uint16), ("wExMemTag", c_uint16),
                ("wExMemVer", c_uint16), ("reserved", c_uint8 * 3)]


class uvc_stream_ctrl_t(Structure):
    _fields_ = [("bmHint", c_uint16), ("bFormatIndex", c_uint8), ("bFrameIndex", c_uint8),
                ("dwFrameInterval", c_uint32), ("wKeyFrameRate", c_uint16),
                ("wPFrameRate", c_uint16), ("wCompQuality", c_uint16),
                ("wCompWindowSize", c_uint16), ("wDelay", c_uint16),
                ("dwMaxVideoFrameSize", c_uint32), ("dwMaxPayloadTransferSize", c_uint32),
                ("dwClockFrequency", c_uint32), ("bmFramingInfo", c_uint8),
                ("bPreferredVersion", c_uint8), ("bMinVersion", c_uint8), ("bMaxVersion", c_uint8),
                ("bInterfaceNumber", c_uint8)]


class NyDevice(Structure):
    _fields_ = [("state", c_uint8), ("index", c_int32), ("usb_device", c_void_p),
                ("usb_handle", c_void_p), ("uvc_context", c_void_p), ("uvc_handle", c_void_p),
                ("stream_ctrl", uvc_stream_ctrl_t), ("stream_callback", c_void_p),
                ("szIntFwVer", c_char * 11), ("oBackend", NyBackend), ("oXuCtrlVer", NyXuVersion),
                ("xFeatureXU", c_uint8), ("xFeatureEM", c_uint8), ("xu_table", c_void_p),
                ("xu_table_count", c_int32), ("oFwStatus", NyFirmwareStatus),
                ("wExtSensorApId", c_uint16), ("wExtFwVer", c_uint16), ("szSetfileVer", c_char * 11),
                ("oFlashInfo", NyFlashInfo), ("xSpiMode", c_uint8), ("xModuleMode", c_uint8),
                ("bExtRomType", c_uint8), ("dwExtRomSize", c_uint32), ("device_gone", c_uint8),
                ("stream_record_owned", c_uint8), ("session_closed", c_uint8),
                ("stream_running", c_uint8), ("control_length_known", c_uint8 * 32),
                ("control_lengths", c_uint16 * 256), ("line_callback", c_void_p),
                ("line_user", c_void_p), ("progress_callback", c_void_p),
                ("progress_user", c_void_p), ("usb_context", c_void_p),
                ("reserved", ctypes.c_uint64 * 23)]


class OsdDatetime(Structure):
    _fields_ = [("data", c_uint8 * 8)]


class OsdWindow(Structure):
    _fields_ = [("data", c_uint8 * 9)]


class OsdColor(Structure):
    _fields_ = [("data", c_uint8 * 9)]


class H264BitrateLayers(Structure):
    _fields_ = [("wLayerID", c_uint16), ("dwPeakBitrate", c_uint32),
                ("dwAverageBitrate", c_uint32)]


class uvc_frame_t(Structure):
    """The fields in front of those that nobody here looks at."""

    _fields_ = [("data", c_void_p), ("data_bytes", ctypes.c_size_t), ("width", c_uint32),
                ("height", c_uint32), ("frame_format", c_int), ("step", ctypes.c_size_t),
                ("sequence", c_uint32)]


class VideoStreamParam(Structure):
    _fields_ = [("reserved", c_uint32), ("width", c_uint32), ("height", c_uint32),
                ("fps", c_uint32), ("frame", POINTER(uvc_frame_t))]


class NyStreamFormat(Structure):
    _fields_ = [("fourcc", c_uint32), ("width", c_uint32), ("height", c_uint32),
                ("interval_count", c_uint32), ("intervals", c_uint32 * 32),
                ("interval_min", c_uint32), ("interval_max", c_uint32),
                ("interval_step", c_uint32)]


class NyStreamRequest(Structure):
    _fields_ = [("fourcc", c_uint32), ("width", c_uint32), ("height", c_uint32),
                ("interval", c_uint32)]


class NyStreamFrame(Structure):
    _fields_ = [("data", c_void_p), ("size", c_size_t), ("fourcc", c_uint32), ("width", c_uint32),
                ("height", c_uint32), ("sequence", c_uint32), ("time_us", c_uint64)]


class NyStreamStatus(Structure):
    _fields_ = [("interval", c_uint32), ("payload_bytes", c_uint32), ("frames", c_uint64),
                ("incomplete", c_uint64), ("late", c_uint64)]


class NyControl(Structure):
    _fields_ = [("id", c_uint32), ("name", c_char_p), ("minimum", c_int64), ("maximum", c_int64),
                ("step", c_int64), ("default_value", c_int64), ("value", c_int64)]


class libusb_device_descriptor(Structure):
    _fields_ = [("bLength", c_uint8), ("bDescriptorType", c_uint8), ("bcdUSB", c_uint16),
                ("bDeviceClass", c_uint8), ("bDeviceSubClass", c_uint8),
                ("bDeviceProtocol", c_uint8), ("bMaxPacketSize0", c_uint8), ("idVendor", c_uint16),
                ("idProduct", c_uint16), ("bcdDevice", c_uint16), ("iManufacturer", c_uint8),
                ("iProduct", c_uint8), ("iSerialNumber", c_uint8), ("bNumConfigurations", c_uint8)]


class libusb_interface_descriptor(Structure):
    """The fields in front of those that nobody here looks at."""

    _fields_ = [("bLength", c_uint8), ("bDescriptorType", c_uint8), ("bInterfaceNumber", c_uint8),
                ("bAlternateSetting", c_uint8), ("bNumEndpoints", c_uint8),
                ("bInterfaceClass", c_uint8)]


class libusb_interface(Structure):
    _fields_ = [("altsetting", POINTER(libusb_interface_descriptor)), ("num_altsetting", c_int)]


class libusb_config_descriptor(Structure):
    """The fields in front of those that nobody here looks at."""

    _fields_ = [("bLength", c_uint8), ("bDescriptorType", c_uint8), ("wTotalLength", c_uint16),
                ("bNumInterfaces", c_uint8), ("bConfigurationValue", c_uint8),
                ("iConfiguration", c_uint8), ("bmAttributes", c_uint8), ("MaxPower", c_uint8),
                ("interface", POINTER(libusb_interface))]


#: Standard controls, in the order of their numbers.
CONTROLS = (
    "brightness", "contrast", "contrast_auto", "hue", "hue_auto", "saturation", "sharpness", "gamma",
    "white_balance", "white_balance_auto", "white_balance_blue", "white_balance_red",
    "white_balance_parts_auto", "backlight_compensation", "gain", "power_line_frequency",
    "digital_zoom", "digital_zoom_limit", "exposure_mode", "exposure_priority", "exposure_time",
    "focus", "focus_auto", "iris", "zoom", "pan", "tilt", "roll", "privacy",
)

#: Values that the headers define.
CONSTANTS = {
    "NYXUS_FW_BIN_CAPACITY": 32768,
    "NYXUS_MFI_BIN_CAPACITY": 4096,
    "NYXUS_MFI_ROM_ADDR": 0x6000,
    "NYXUS_E_FAILED": -1,
    "NYXUS_E_SPI_COMMAND": -9,
    "NYXUS_E_BUSY": -16,
    "NYXUS_E_NO_SUPPORT": -38,
    "NYXUS_E_MISMATCH": -1028,
    "NYXUS_E_UNSUPPORTED": -1029,
    "NYXUS_E_INVALID": -1030,
    "NYXUS_E_RANGE": -1036,
    "NYXUS_E_LIBUSB(-1)": -0x4001,
    "NYXUS_E_SYSTEM(1)": -0x8001,
    "LIBUSB_ERROR_NO_DEVICE": -4,
    "UVC_ERROR_NO_DEVICE": -4,
    "UVC_ERROR_TIMEOUT": -7,
    "UVC_ERROR_OTHER": -99,
    **{f"NYXUS_CONTROL_{name.upper()}": number for number, name in enumerate(CONTROLS)},
    "NYXUS_CONTROL_COUNT": len(CONTROLS),
}

NYXUS_DECLARATIONS = """
int32_t LIB_NyxusGetVersion(char* version);
void NyTraceVerbose_level(int32_t level);
NyDevice* DEV_CreateObjectUsb(libusb_device* device);
int32_t DEV_Init(NyDevice* pDevObj);
void DEV_DeleteObject(NyDevice* pDevObj);
void init_uvc_video(NyDevice* pDevObj);
int32_t MP_QueryExtRom(NyDevice* pDevObj);
int32_t XuSetExtRomType(NyDevice* pDevObj, uint8_t bExtRomType);
int32_t XU_ChipReset(NyDevice* pDevObj);
int32_t XuRegRead(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf);
int32_t XuRegWrite(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, const uint8_t* pBuf);
int32_t XuSensorRead(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf);
int32_t XuSensorWrite(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, const uint8_t* pBuf);
int32_t XuMcuDataRead(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, uint8_t* pBuf);
int32_t XuMcuDataWrite(NyDevice* pDevObj, uint32_t wAddr, uint32_t wLen, const uint8_t* pBuf);
int32_t XuGetFlip(NyDevice* pDevObj, uint8_t* pFlip);
int32_t XuSetFlip(NyDevice* pDevObj, int32_t bEnable);
int32_t XuGetMirror(NyDevice* pDevObj, uint8_t* pMirror);
int32_t XuSetMirror(NyDevice* pDevObj, int32_t bEnable);
int32_t XU_MjpgQGainGet(NyDevice* pDevObj, uint8_t* pGain);
int32_t XU_MjpgQGainSet(NyDevice* pDevObj, int32_t bGain);
int32_t XU_GpioSet(NyDevice* pDevObj, int32_t bIndex, int32_t bValue);
int32_t XU_LedStatusGet(NyDevice* pDevObj, uint8_t bLedSelector, uint8_t* pLedStatus);
int32_t XU_LedStatusSet(NyDevice* pDevObj, uint8_t bLedSelector, uint8_t bLedStatus);
int32_t XU_I2cConfigGet(NyDevice* pDevObj, uint8_t* pConfig);
int32_t XU_I2cConfigSet(NyDevice* pDevObj, const uint8_t* pConfig);
int32_t XU_I2cGet(NyDevice* pDevObj, uint16_t wAddr, uint8_t bLen, uint8_t* pBuf);
int32_t XU_I2cSet(NyDevice* pDevObj, uint16_t wAddr, uint8_t bLen, const uint8_t* pBuf);
int32_t XU_MotionDetectGet(NyDevice* pDevObj, uint8_t* pSetting);
int32_t XU_MotionDetectSet(NyDevice* pDevObj, const uint8_t* pSetting);
int32_t XU_MotionDetectPoll(NyDevice* pDevObj, uint8_t* pAlarm);
int32_t XU_OsdSetEnable(NyDevice* pDevObj, int32_t bEnable);
int32_t XU_OsdGetEnable(NyDevice* pDevObj, uint8_t* pEnable);
int32_t XU_OsdReset(NyDevice* pDevObj);
int32_t XU_OsdSetDatetime(NyDevice* pDevObj, const OsdDatetime* pDatetime);
int32_t XU_OsdGetDatetime(NyDevice* pDevObj, OsdDatetime* pDatetime);
int32_t XU_OsdSetString(NyDevice* pDevObj, uint8_t bIndex, const uint8_t* pText);
int32_t XU_OsdGetString(NyDevice* pDevObj, uint8_t bIndex, uint8_t* pText);
int32_t XU_OsdSetWindow(NyDevice* pDevObj, const OsdWindow* pWindow);
int32_t XU_OsdSetColor(NyDevice* pDevObj, const OsdColor* pColor);
int32_t XU_OsdEnableDatetime(NyDevice* pDevObj, int32_t bEnable);
int32_t XU_OsdEnableTransparent(NyDevice* pDevObj, int32_t bEnable);
int32_t H264GetRateCtrlMode(NyDevice* pDevObj, uint8_t* pBuf);
int32_t H264SetRateCtrlMode(NyDevice* pDevObj, const uint8_t* pBuf);
int32_t H264SetNextFrameType(NyDevice* pDevObj, const uint8_t* pBuf);
int32_t H264GetVersion(NyDevice* pDevObj, uint8_t* pBuf);
int32_t H264Reset(NyDevice* pDevObj, const uint8_t* pBuf);
int32_t H264GetQpSteps(NyDevice* pDevObj, uint8_t* pBuf);
int32_t H264SetQpSteps(NyDevice* pDevObj, const uint8_t* pBuf);
int32_t H264GetBitrate(NyDevice* pDevObj, H264BitrateLayers* out);
int32_t H264SetBitrate(NyDevice* pDevObj, const H264BitrateLayers* in);
int32_t H264GetIFramePeriod(NyDevice* pDevObj, uint16_t* period);
int32_t H264SetIFramePeriod(NyDevice* pDevObj, const uint16_t* period);
int32_t H264GetFormat(NyDevice* pDevObj, uint8_t* format);
int32_t H264SetFormat(NyDevice* pDevObj, uint8_t format);
int32_t MP_BinSetSerialNum(uint8_t* mfi_bin, const char* sn);
int32_t MP_ExtRomWriteEnable(NyDevice* pDevObj, uint8_t bExtRomType, bool xEnable);
int32_t XU_SpiEraseChip(NyDevice* pDevObj);
int32_t MP_FwErase(NyDevice* pDevObj);
int32_t XuExtRomRead(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen, uint8_t* pBuf);
int32_t XuExtRomWrite(NyDevice* pDevObj, uint32_t dwAddr, uint32_t dwLen, const uint8_t* pBuf);
int32_t XU_SpiGetReservedArea(NyDevice* pDevObj, uint16_t wLen, uint8_t* pBuf);
int32_t XU_SpiSetReservedArea(NyDevice* pDevObj, uint16_t wLen, const uint8_t* pBuf);
int32_t startVideoStream_snapshot(NyDevice* pDevObj, void* unused, VideoStreamParam* param);
void stopVideoStream(NyDevice* pDevObj);
int32_t nyxus_list_formats(NyDevice* pDevObj, NyStreamFormat* formats, uint32_t capacity);
int32_t nyxus_stream_start(NyDevice* pDevObj, const NyStreamRequest* request, NyStreamCallback callback, void* user, NyStream** stream);
int32_t nyxus_stream_next(NyStream* stream, uint32_t timeout_ms, NyStreamFrame* frame);
int32_t nyxus_stream_status(NyStream* stream, NyStreamStatus* status);
void nyxus_stream_stop(NyStream* stream);
void nyxus_stream_free(NyStream* stream);
int32_t nyxus_list_controls(NyDevice* pDevObj, NyControl* controls, uint32_t capacity);
int32_t nyxus_get_control(NyDevice* pDevObj, uint32_t id, NyControl* control);
int32_t nyxus_set_control(NyDevice* pDevObj, uint32_t id, int64_t value);
"""

LIBUSB_DECLARATIONS = """
int libusb_init(libusb_context** ctx);
void libusb_exit(libusb_context* ctx);
const char* libusb_strerror(int errcode);
ssize_t libusb_get_device_list(libusb_context* ctx, libusb_device*** list);
void libusb_free_device_list(libusb_device** list, int unref_devices);
libusb_device* libusb_ref_device(libusb_device* dev);
void libusb_unref_device(libusb_device* dev);
int libusb_get_device_descriptor(libusb_device* dev, struct libusb_device_descriptor* desc);
int libusb_get_active_config_descriptor(libusb_device* dev, struct libusb_config_descriptor** config);
int libusb_get_config_descriptor(libusb_device* dev, uint8_t config_index, struct libusb_config_descriptor** config);
void libusb_free_config_descriptor(struct libusb_config_descriptor* config);
uint8_t libusb_get_bus_number(libusb_device* dev);
uint8_t libusb_get_device_address(libusb_device* dev);
int libusb_get_port_numbers(libusb_device* dev, uint8_t* port_numbers, int port_numbers_len);
int libusb_open(libusb_device* dev, libusb_device_handle** dev_handle);
void libusb_close(libusb_device_handle* dev_handle);
int libusb_set_auto_detach_kernel_driver(libusb_device_handle* dev, int enable);
int libusb_claim_interface(libusb_device_handle* dev, int interface_number);
int libusb_kernel_driver_active(libusb_device_handle* dev, int interface_number);
int libusb_release_interface(libusb_device_handle* dev, int interface_number);
int libusb_get_string_descriptor_ascii(libusb_device_handle* dev, uint8_t desc_index, unsigned char* data, int length);
"""

LIBUVC_DECLARATIONS = """
const char* uvc_strerror(uvc_error_t err);
struct libusb_device_handle* uvc_get_libusb_handle(uvc_device_handle_t* devh);
"""

_SCALARS = {
    "int": c_int, "int32_t": c_int32, "int64_t": c_int64, "uint8_t": c_uint8, "uint16_t": c_uint16,
    "uint32_t": c_uint32, "bool": ctypes.c_bool, "ssize_t": ctypes.c_ssize_t,
    "unsigned char": c_uint8, "uvc_error_t": c_int, "NyStreamCallback": c_void_p, "void": None,
}
_RECORDS = {
    record.__name__: record
    for record in (NyDevice, OsdDatetime, OsdWindow, OsdColor, H264BitrateLayers, VideoStreamParam,
                   NyStreamFormat, NyStreamRequest, NyStreamFrame, NyStreamStatus, NyControl,
                   libusb_device_descriptor, libusb_config_descriptor)
}


def _ctype(declared: str) -> Any:
    """The ctypes type of a C type; a pointer to something without fields here is a void pointer."""
    words = re.sub(r"\b(const|struct)\b", "", declared).replace("*", " * ").split()
    stars = words.count("*")
    name = " ".join(word for word in words if word != "*")
    if name == "char" and stars == 1:
        return ctypes.c_char_p
    if stars == 0:
        return _SCALARS[name]
    target: Any = _RECORDS.get(name) or (_SCALARS.get(name) if name != "void" else None)
    result: Any = c_void_p if target is None else POINTER(target)
    for _ in range(stars - 1):
        result = POINTER(result)
    return result


def _declare(library: ctypes.CDLL, declarations: str) -> ctypes.CDLL:
    for returned, name, arguments in re.findall(r"(.+?)(\w+)\((.*)\);", declarations):
        function = getattr(library, name)
        function.restype = _ctype(returned)
        function.argtypes = [_ctype(re.sub(r"\w+$", "", argument)) for argument in arguments.split(",")]
    return library


def _load() -> "tuple[ctypes.CDLL, ctypes.CDLL, ctypes.CDLL]":
    # The soname, and so the interface, is what this package is written for.
    nyxus = ctypes.CDLL(os.environ.get("NYXUS_LIBRARY", "libNYXUS.so.2"))
    return (_declare(nyxus, NYXUS_DECLARATIONS),
            _declare(ctypes.CDLL("libusb-1.0.so.0"), LIBUSB_DECLARATIONS),
            _declare(ctypes.CDLL("libuvc.so.0"), LIBUVC_DECLARATIONS))


NYXUS, LIBUSB, LIBUVC = _load()


# The variables of a thread have another address in each: they are looked up every time.

def number(name: str) -> int:
    """An int32_t variable of the library."""
    return c_int32.in_dll(NYXUS, name).value


def set_number(name: str, value: int) -> None:
    c_int32.in_dll(NYXUS, name).value = value


def text(name: str) -> str:
    """A text variable of the library."""
    return (c_char * 256).in_dll(NYXUS, name).value.decode(errors="replace")


def byte(name: str) -> c_uint8:
    """A uint8_t variable of the library."""
    return c_uint8.in_dll(NYXUS, name)


def version() -> str:
    """The library's version, such as "2.0.11"."""
    buffer = ctypes.create_string_buffer(8)
    NYXUS.LIB_NyxusGetVersion(buffer)
    return buffer.value.decode().strip()


def set_trace(level: int) -> None:
    """What the library tells on standard error: 0 nothing, 1 milestones, 2 debug lines, 3 all."""
    NYXUS.NyTraceVerbose_level(level)
