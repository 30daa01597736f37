# SPDX-License-Identifier: Apache-2.0
"""Failures."""

import enum

from ._library import CONSTANTS, LIBUSB, LIBUVC, number, text

NO_DEVICE = CONSTANTS["LIBUSB_ERROR_NO_DEVICE"]
VIDEO_NO_DEVICE = CONSTANTS["UVC_ERROR_NO_DEVICE"]
VIDEO_TIMEOUT = CONSTANTS["UVC_ERROR_TIMEOUT"]
LOWEST_VIDEO_CODE = CONSTANTS["UVC_ERROR_OTHER"]
FAILED = CONSTANTS["NYXUS_E_FAILED"]
SPI_COMMAND = CONSTANTS["NYXUS_E_SPI_COMMAND"]
BUSY = CONSTANTS["NYXUS_E_BUSY"]
NO_SUPPORT = CONSTANTS["NYXUS_E_NO_SUPPORT"]
MISMATCH = CONSTANTS["NYXUS_E_MISMATCH"]
UNSUPPORTED = CONSTANTS["NYXUS_E_UNSUPPORTED"]
INVALID = CONSTANTS["NYXUS_E_INVALID"]
RANGE = CONSTANTS["NYXUS_E_RANGE"]

ORIGIN_MASK = 0xFF00


class Origin(enum.Enum):
    """Where a failure began."""

    LIBRARY = "library"  #: libNYXUS: the codes of nyxus/error.h
    USB = "usb"  #: libusb: Error.usb_code tells which failure
    SYSTEM = "system"  #: the operating system: Error.errno tells which
    VIDEO = "video"  #: libuvc: the code is a uvc_error_t


class Error(Exception):
    """A call that failed: its code as the C interface returns it, its origin and its message."""

    def __init__(self, code: int, message: str, origin: "Origin | None" = None) -> None:
        super().__init__(message)
        self.code = code
        self.origin = origin if origin is not None else _origin_of(code)
        self.message = message

    @property
    def usb_code(self) -> int:
        """The libusb code (negative), 0 for a failure of another origin."""
        return -(-self.code & 0xFF) if self.origin is Origin.USB else 0

    @property
    def errno(self) -> int:
        """The errno, 0 for a failure of another origin."""
        return -self.code & 0xFF if self.origin is Origin.SYSTEM else 0

    @property
    def camera_is_gone(self) -> bool:
        """The camera is no longer there, most often unplugged."""
        return self.usb_code == NO_DEVICE or (
            self.origin is Origin.VIDEO and self.code == VIDEO_NO_DEVICE
        )

    def __str__(self) -> str:
        return f"{self.message} [{self.origin.value}, {self.code}]"


def usb_status(libusb_code: int) -> int:
    """The code of a failed libusb call."""
    return -(0x4000 + (-libusb_code & 0xFF))


def usb_error(libusb_code: int) -> Error:
    return Error(usb_status(libusb_code), LIBUSB.libusb_strerror(libusb_code).decode())


def error_of(status: int) -> Error:
    """What a function of the library has just returned on this thread."""
    # The message variables describe the last failure, which may be an older one.
    if number("nyxus_errno") == status:
        return Error(status, text("nyxus_errmsg"))
    return Error(status, _description(status))


def check(status: int) -> int:
    """Raises what a function of the library has just returned, if it is a failure."""
    if status < 0:
        raise error_of(status)
    return status


def check_video(status: int) -> None:
    """The same for the streaming functions, which return what libuvc says."""
    if LOWEST_VIDEO_CODE <= status < 0:
        described = number("nyxus_errno") == status
        message = text("nyxus_errmsg") if described else LIBUVC.uvc_strerror(status).decode()
        raise Error(status, message, Origin.VIDEO)
    check(status)


def require(condition: bool, message: str) -> None:
    """Refuses an argument."""
    if not condition:
        raise Error(RANGE, message)


def _origin_of(code: int) -> Origin:
    high = -code & ORIGIN_MASK if -0xFFFF <= code < 0 else 0
    return {0x4000: Origin.USB, 0x8000: Origin.SYSTEM}.get(high, Origin.LIBRARY)


def _description(code: int) -> str:
    """For the codes that come without a message."""
    known = {
        FAILED: "refused: a value out of range, or not possible with this camera",
        SPI_COMMAND: "the flash did not answer a command in time",
        BUSY: "still busy",
        NO_SUPPORT: "not supported",
    }
    if code in known:
        return known[code]
    if _origin_of(code) is Origin.USB:
        return str(LIBUSB.libusb_strerror(-(-code & 0xFF)).decode())
    return f"failed with status {code}"


