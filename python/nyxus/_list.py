# SPDX-License-Identifier: Apache-2.0
"""The cameras on the bus, as far as they are known without opening them."""

import ctypes
import dataclasses
import re
import weakref
from ctypes import POINTER, c_uint8, c_void_p
from typing import Any, List

from ._errors import NO_DEVICE, RANGE, Error, usb_error, usb_status
from ._library import LIBUSB, libusb_config_descriptor, libusb_device_descriptor

VENDOR = 0x1162
VIDEO_CLASS = 0x0E


class UsbSession:
    """A libusb context. A fresh one sees the bus as it is, with or without a udev daemon."""

    def __init__(self) -> None:
        self.context = c_void_p()
        status = LIBUSB.libusb_init(ctypes.byref(self.context))
        if status != 0:
            raise usb_error(status)
        weakref.finalize(self, LIBUSB.libusb_exit, self.context).atexit = False


class UsbDevice:
    """A reference to a device, which keeps its session alive."""

    def __init__(self, session: UsbSession, pointer: int) -> None:
        self.pointer = c_void_p(LIBUSB.libusb_ref_device(pointer))
        # The session is an argument, so that it goes after the device.
        weakref.finalize(self, _unref, self.pointer, session).atexit = False


def _unref(pointer: c_void_p, _session: UsbSession) -> None:
    LIBUSB.libusb_unref_device(pointer)


@dataclasses.dataclass(frozen=True)
class CameraInfo:
    """A camera on the bus."""

    bus: int
    address: int  #: a restart of the camera changes it
    port_path: str  #: "1-2" or "1-2.3", as the kernel names it; a restart keeps it
    serial: str  #: as the camera tells it, "" if it has none
    product: str  #: as the camera tells it
    usb_device: UsbDevice = dataclasses.field(repr=False, compare=False)

    @property
    def bus_address(self) -> str:
        """Bus and address: "1:5"."""
        return f"{self.bus}:{self.address}"

    def matches(self, name: str) -> bool:
        """Whether people may mean it by this: serial number, port path or place (1:5, 001:005)."""
        if name == self.port_path or (self.serial and name == self.serial):
            return True
        place = re.fullmatch(r"([0-9]{1,5}):([0-9]{1,5})", name)
        return place is not None and (int(place[1]), int(place[2])) == (self.bus, self.address)


def cameras() -> List[CameraInfo]:
    """The cameras that are plugged in now, by bus and port. Opens none of them. Thread-safe."""
    session = UsbSession()
    devices = POINTER(c_void_p)()
    count = LIBUSB.libusb_get_device_list(session.context, ctypes.byref(devices))
    if count < 0:
        raise usb_error(count)
    try:
        found = [_describe(session, devices[i]) for i in range(count) if _is_camera(devices[i])]
    finally:
        LIBUSB.libusb_free_device_list(devices, 1)
    return sorted(found, key=lambda info: (info.bus, info.port_path))


def find(name: str = "") -> CameraInfo:
    """The one camera with this name (CameraInfo.matches()), or the only one there is."""
    found = [info for info in cameras() if not name or info.matches(name)]
    if not found:
        reason = f"no camera is called '{name}'" if name else "no camera found"
        raise Error(usb_status(NO_DEVICE), reason)
    if len(found) > 1:
        raise Error(RANGE, f"{len(found)} cameras match; name one by serial number, port path or "
                           "bus:address")
    return found[0]


def why_not_open(info: CameraInfo) -> "Error | None":
    """What keeps this process from the camera's control interface; disturbs nobody who has it."""
    handle = c_void_p()
    status = LIBUSB.libusb_open(info.usb_device.pointer, ctypes.byref(handle))
    if status != 0:
        return usb_error(status)
    LIBUSB.libusb_set_auto_detach_kernel_driver(handle, 1)
    status = LIBUSB.libusb_claim_interface(handle, 0)
    if status == 0:
        LIBUSB.libusb_release_interface(handle, 0)
    LIBUSB.libusb_close(handle)
    return usb_error(status) if status != 0 else None


def _is_camera(device: Any) -> bool:
    descriptor = libusb_device_descriptor()
    return (LIBUSB.libusb_get_device_descriptor(device, ctypes.byref(descriptor)) == 0
            and descriptor.idVendor == VENDOR and _has_video_interface(device))


def _has_video_interface(device: Any) -> bool:
    config = POINTER(libusb_config_descriptor)()
    if (LIBUSB.libusb_get_active_config_descriptor(device, ctypes.byref(config)) != 0
            and LIBUSB.libusb_get_config_descriptor(device, 0, ctypes.byref(config)) != 0):
        return False
    try:
        interfaces = config.contents.interface[: config.contents.bNumInterfaces]
        return any(interface.num_altsetting > 0
                   and interface.altsetting[0].bInterfaceClass == VIDEO_CLASS
                   for interface in interfaces)
    finally:
        LIBUSB.libusb_free_config_descriptor(config)


def _describe(session: UsbSession, device: Any) -> CameraInfo:
    descriptor = libusb_device_descriptor()
    LIBUSB.libusb_get_device_descriptor(device, ctypes.byref(descriptor))
    bus = LIBUSB.libusb_get_bus_number(device)
    ports = (c_uint8 * 7)()
    count = LIBUSB.libusb_get_port_numbers(device, ports, len(ports))
    path = str(bus) + "".join(("-" if i == 0 else ".") + str(ports[i]) for i in range(max(count, 0)))
    return CameraInfo(
        bus=bus,
        address=LIBUSB.libusb_get_device_address(device),
        port_path=path,
        serial=_text(device, path, "serial", descriptor.iSerialNumber),
        product=_text(device, path, "product", descriptor.iProduct),
        usb_device=UsbDevice(session, device),
    )


def _text(device: Any, path: str, attribute: str, index: int) -> str:
    """As the kernel has read it, which needs no permission; where /sys is not mounted, the device
    itself is asked."""
    try:
        with open(f"/sys/bus/usb/devices/{path}/{attribute}", errors="replace") as file:
            line = file.readline().rstrip("\n")
        if line:
            return line
    except OSError:
        pass
    handle = c_void_p()
    if index == 0 or LIBUSB.libusb_open(device, ctypes.byref(handle)) != 0:
        return ""
    answer = (c_uint8 * 128)()
    size = LIBUSB.libusb_get_string_descriptor_ascii(handle, index, answer, len(answer))
    LIBUSB.libusb_close(handle)
    return bytes(answer[: max(size, 0)]).decode("ascii", errors="replace")
