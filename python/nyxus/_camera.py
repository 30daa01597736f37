# SPDX-License-Identifier: Apache-2.0
"""A camera that is open."""

import atexit
import ctypes
import enum
import weakref
from ctypes import c_uint8
from types import TracebackType
from typing import Any, Callable, List, Optional, Type, Union

from . import _controls, _features, _list, _rom, _video
from ._errors import INVALID, NO_SUPPORT, SPI_COMMAND, UNSUPPORTED, Error, check, error_of, require
from ._library import LIBUSB, LIBUVC, NYXUS, NyDevice, NyFlashInfo, byte, number, set_number

UNKNOWN_CHIP = 3
EEPROM_WRITE_CYCLE_MS = 5
READ_ID_COMMANDS = (0x9F, 0x90, 0xAB, 0x15)  # of the known flash parts, most common first


class RomState(enum.Enum):
    """What the probe has found in the external ROM."""

    FIRMWARE = "firmware"  #: firmware for this chip
    BLANK = "blank"  #: none; the flash has told what it is
    UNKNOWN = "unknown"  #: none, and no flash answers: an EEPROM, or nothing


class Camera:
    """An open, probed camera: `with nyxus.open() as camera: ...`.

    It is closed at the end of the `with` block, by close(), or when nobody refers to it any more. One
    that is gone is abandoned, as libNYXUS does. One thread at a time.
    """

    def __init__(self, info: _list.CameraInfo, handle: "Handle", rom_state: RomState) -> None:
        self.info = info
        self.rom_state = rom_state
        self._handle = handle

    def __enter__(self) -> "Camera":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def close(self) -> None:
        """Ends its stream and closes the camera. Calling it again does nothing."""
        self._handle.close()

    def __repr__(self) -> str:
        return f"<nyxus.Camera {self.info.bus_address} serial={self.info.serial!r}>"

    # What the probe has learnt.

    @property
    def chip(self) -> str:
        """Name of the controller chip, such as "NY6410"."""
        return _text(self._record.oBackend.name)

    @property
    def family(self) -> str:
        """Name of its family."""
        names = (ctypes.c_char_p * 8).in_dll(NYXUS, "IC_FAMILY_STR")
        index = self._record.oBackend.family
        return _text(names[index if index < len(names) else 0] or b"")

    @property
    def internal_version(self) -> str:
        """Version text of the firmware inside the chip."""
        return _text(self._record.szIntFwVer)

    @property
    def setfile_version(self) -> str:
        return _text(self._record.szSetfileVer)

    @property
    def firmware_version(self) -> int:
        """Version of the firmware in the external ROM."""
        return int(self._record.wExtFwVer)

    @property
    def runs_external_firmware(self) -> bool:
        return bool(self._record.oFwStatus.xExtFwExist)

    # Its parts.

    @property
    def rom(self) -> "_rom.Rom":
        return _rom.Rom(self._handle)

    @property
    def osd(self) -> "_features.Osd":
        return _features.Osd(self._handle)

    @property
    def h264(self) -> "_features.H264":
        return _features.H264(self._handle)

    # Memories; addresses and lengths count 16 bits, in the MCU 8.

    def read_registers(self, address: int, length: int) -> bytes:
        return self._read(NYXUS.XuRegRead, address, length, 0xFFFF)

    def write_registers(self, address: int, data: bytes) -> None:
        self._write(NYXUS.XuRegWrite, address, data, 0xFFFF)

    def read_sensor(self, address: int, length: int) -> bytes:
        return self._read(NYXUS.XuSensorRead, address, length, 0xFFFF)

    def write_sensor(self, address: int, data: bytes) -> None:
        self._write(NYXUS.XuSensorWrite, address, data, 0xFFFF)

    def read_mcu(self, address: int, length: int) -> bytes:
        return self._read(NYXUS.XuMcuDataRead, address, length, 0xFF)

    def write_mcu(self, address: int, data: bytes) -> None:
        self._write(NYXUS.XuMcuDataWrite, address, data, 0xFF)

    # Picture.

    @property
    def flip(self) -> bool:
        """The picture is upside down."""
        return self._get(NYXUS.XuGetFlip) != 0

    @flip.setter
    def flip(self, on: bool) -> None:
        check(NYXUS.XuSetFlip(self._handle.pointer, on))

    @property
    def mirror(self) -> bool:
        """Left and right are swapped."""
        return self._get(NYXUS.XuGetMirror) != 0

    @mirror.setter
    def mirror(self, on: bool) -> None:
        check(NYXUS.XuSetMirror(self._handle.pointer, on))

    @property
    def mjpeg_gain(self) -> int:
        """Quantisation gain of MJPEG: 1 to 63, but not 32."""
        return self._get(NYXUS.XU_MjpgQGainGet)

    @mjpeg_gain.setter
    def mjpeg_gain(self, gain: int) -> None:
        require(0 <= gain <= 0xFF, "the gain is 1 to 63, but not 32")
        check(NYXUS.XU_MjpgQGainSet(self._handle.pointer, gain))

    def formats(self) -> "List[_video.VideoFormat]":
        """What the camera streams, in its order. Asks the camera nothing."""
        return _video.list_formats(self._handle)

    def stream(self, width: int = 640, height: int = 480, fps: float = 0,
               format: str = "YUYV") -> "_video.Stream":
        """Starts video in one of formats(); fps 0 is the first rate that the camera offers.

            with camera.stream(1280, 720, format="MJPG") as stream:
                for frame in stream: ...
        """
        return _video.Stream(self._handle, width, height, fps, format)

    def take_picture(self, width: int = 640, height: int = 480, fps: int = 0) -> "_video.Frame":
        """One complete frame of YUYV. Tries again after bad ones as long as the camera is connected."""
        return _video.take_picture(self._handle, width, height, fps)

    def controls(self) -> "List[_controls.Control]":
        """The standard controls that the camera has, such as brightness and zoom."""
        return _controls.list_controls(self._handle)

    def control(self, name: str) -> "_controls.Control":
        """One of them: its range and value."""
        return _controls.get_control(self._handle, name)

    def set_control(self, name: str, value: int) -> None:
        """Sets one; a value beyond its range is refused."""
        _controls.set_control(self._handle, name, value)

    # Peripherals; nyxus/peripheral.h has the ranges.

    def set_gpio(self, pin: int, high: bool) -> None:
        """Drives pin 0 to 15. Writes that fail are not noticed."""
        require(0 <= pin <= 15, "the pin is 0 to 15")
        check(NYXUS.XU_GpioSet(self._handle.pointer, pin, 1 if high else 0))

    def led(self, index: int) -> int:
        """State bits of an LED (mask 0x58); fails with code -16 while an update is pending."""
        require(0 <= index <= 0xFF, "the LED is 0 to 255")
        state = c_uint8()
        check(NYXUS.XU_LedStatusGet(self._handle.pointer, index, ctypes.byref(state)))
        return state.value

    def set_led(self, index: int, state: int) -> None:
        require(0 <= index <= 0xFF and 0 <= state <= 0xFF, "LED and state are 0 to 255")
        check(NYXUS.XU_LedStatusSet(self._handle.pointer, index, state))

    @property
    def i2c_config(self) -> int:
        """Address of the I2C device in 8-bit form; bit 0 is the addressing mode."""
        return self._get(NYXUS.XU_I2cConfigGet)

    @i2c_config.setter
    def i2c_config(self, config: int) -> None:
        require(0 <= config <= 0xFF, "the configuration is a byte")
        check(NYXUS.XU_I2cConfigSet(self._handle.pointer, ctypes.byref(c_uint8(config))))

    def read_i2c(self, address: int, length: int) -> bytes:
        """Reads 1 to 8 bytes of the I2C device; the register address has 9 bits."""
        _require_i2c(address, length)
        buffer = (c_uint8 * length)()
        check(NYXUS.XU_I2cGet(self._handle.pointer, address, length, buffer))
        return bytes(buffer)

    def write_i2c(self, address: int, data: bytes) -> None:
        _require_i2c(address, len(data))
        check(NYXUS.XU_I2cSet(self._handle.pointer, address, len(data),
                              (c_uint8 * len(data)).from_buffer_copy(data)))

    @property
    def motion_setting(self) -> bytes:
        """The four bytes of the motion detection, which the firmware defines."""
        setting = (c_uint8 * 4)()
        check(NYXUS.XU_MotionDetectGet(self._handle.pointer, setting))
        return bytes(setting)

    @motion_setting.setter
    def motion_setting(self, setting: bytes) -> None:
        require(len(setting) == 4, "a motion setting has 4 bytes")
        check(NYXUS.XU_MotionDetectSet(self._handle.pointer,
                                       (c_uint8 * 4).from_buffer_copy(setting)))

    def poll_motion(self) -> bool:
        """Whether there was motion since the last poll; acknowledges it."""
        return self._get(NYXUS.XU_MotionDetectPoll) != 0

    def restart(self) -> None:
        """Restarts the camera, which leaves the bus and comes back with a new address. Close it then,
        and find it again by its port path. A failure is to be expected when the chip was quick."""
        check(NYXUS.XU_ChipReset(self._handle.pointer))

    @property
    def _record(self) -> NyDevice:
        return self._handle.record

    def _get(self, function: Callable[..., int]) -> int:
        value = c_uint8()
        check(function(self._handle.pointer, ctypes.byref(value)))
        return value.value

    def _read(self, function: Callable[..., int], address: int, length: int, most: int) -> bytes:
        require(0 <= address <= most and 0 <= length <= most, "address or length out of range")
        buffer = (c_uint8 * length)()
        check(function(self._handle.pointer, address, length, buffer))
        return bytes(buffer)

    def _write(self, function: Callable[..., int], address: int, data: bytes, most: int) -> None:
        require(0 <= address <= most and len(data) <= most, "address or length out of range")
        buffer = (c_uint8 * len(data)).from_buffer_copy(data)
        check(function(self._handle.pointer, address, len(data), buffer))


class Handle:
    """The device object behind a camera and its parts; it lives as long as one of them does."""

    def __init__(self, device: Any, usb_device: _list.UsbDevice) -> None:
        self._device = device  # POINTER(NyDevice)
        self._usb_device: "_list.UsbDevice | None" = usb_device  # as long as the device object
        self.stream: "_video.Stream | None" = None
        _open_handles.add(self)

    def __del__(self) -> None:
        self.close()

    @property
    def pointer(self) -> Any:
        """For the functions of the library."""
        if not self._device:
            raise ValueError("the camera has been closed")
        return self._device

    @property
    def record(self) -> NyDevice:
        record: NyDevice = self.pointer.contents
        return record

    def close(self) -> None:
        if not self._device:
            return
        if self.stream is not None:
            self.stream.stop()
        NYXUS.DEV_DeleteObject(self._device)
        self._device = None
        self._usb_device = None


_open_handles: "weakref.WeakSet[Handle]" = weakref.WeakSet()


@atexit.register
def _close_all() -> None:
    """While the interpreter still works, streaming threads included."""
    for handle in list(_open_handles):
        handle.close()


def open(camera: Union[str, _list.CameraInfo] = "", *, blank: bool = False) -> Camera:
    """Opens and probes a camera: the only one, or by serial number, port path or bus:address.

    With `blank`, a camera whose ROM holds no firmware is opened too, for instance after an upgrade
    that broke off: its flash is asked directly what it is (Camera.rom_state).

    EEPROMs lose writes that follow each other too soon, so this raises the process-wide wait after
    each of them to 5 ms if it is lower. One thread at a time.
    """
    info = _list.find(camera) if isinstance(camera, str) else camera
    cycle = byte("nyxus_write_cycle_time")
    cycle.value = max(cycle.value, EEPROM_WRITE_CYCLE_MS)
    set_number("nyxus_errno", 0)
    set_number("nyxus_rv", 0)
    device = NYXUS.DEV_CreateObjectUsb(info.usb_device.pointer)
    if device:
        return Camera(info, Handle(device, info.usb_device), RomState.FIRMWARE)
    # The calls below change what the library says.
    failure = _creation_failure()
    failure = failure or _list.why_not_open(info) or _libuvc_failure()
    if not blank or failure.code not in (INVALID, UNSUPPORTED):
        raise failure
    return _open_blank(info)


def _creation_failure() -> "Error | None":
    if number("nyxus_rv") != 0:
        return _probe_failure(number("nyxus_rv"))
    return error_of(number("nyxus_errno")) if number("nyxus_errno") != 0 else None


def _probe_failure(status: int) -> Error:
    return Error(status, "unknown controller") if status == UNKNOWN_CHIP else error_of(status)


def _libuvc_failure() -> Error:
    return Error(NO_SUPPORT, "libuvc does not understand its descriptors")


def _open_blank(info: _list.CameraInfo) -> Camera:
    """Sets up a device object by hand: the probe asks a flash whose read-ID command it is told."""
    record = NyDevice(state=1, index=-1, usb_device=info.usb_device.pointer.value)
    device = ctypes.pointer(record)
    handle = Handle(device, info.usb_device)
    NYXUS.init_uvc_video(device)
    if not record.uvc_handle:
        handle.close()
        raise _libuvc_failure()
    record.usb_handle = LIBUVC.uvc_get_libusb_handle(record.uvc_handle)
    LIBUSB.libusb_set_auto_detach_kernel_driver(record.usb_handle, 1)
    try:
        return Camera(info, handle, _ask_flash(record, device))
    except Error:
        handle.close()
        raise


def _ask_flash(record: NyDevice, device: Any) -> RomState:
    # A request for the status that failed in passing hides firmware, too: look again.
    status = NYXUS.DEV_Init(device)
    if status == 0:
        return RomState.FIRMWARE
    if status not in (INVALID, UNSUPPORTED, SPI_COMMAND):
        raise _probe_failure(status)
    for command in READ_ID_COMMANDS:
        record.oFlashInfo = NyFlashInfo(bCmdRDID=command)
        status = NYXUS.MP_QueryExtRom(device)
        if status not in (0, SPI_COMMAND):
            raise _probe_failure(status)
        identity = bytes(record.oFlashInfo.ID)
        silent = identity[0] == identity[1] and identity[0] in (0x00, 0xFF)
        if status == 0 and not silent:
            return RomState.BLANK
    record.oFlashInfo = NyFlashInfo()
    record.xSpiMode = 0
    record.dwExtRomSize = 0
    return RomState.UNKNOWN


def _require_i2c(address: int, length: int) -> None:
    require(0 <= address <= 0x1FF, "the register address has 9 bits")
    require(1 <= length <= 8, "1 to 8 bytes")


def _text(field: bytes) -> str:
    return field.decode("ascii", errors="replace")


