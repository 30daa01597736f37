# SPDX-License-Identifier: Apache-2.0
"""On-screen display and H.264 encoder."""

import ctypes
import datetime
import enum
from ctypes import c_uint8, c_uint16
from typing import TYPE_CHECKING, Callable, NamedTuple, Tuple

from ._errors import check, require
from ._library import NYXUS, H264BitrateLayers, OsdColor, OsdDatetime, OsdWindow, byte

if TYPE_CHECKING:
    from ._camera import Handle

TEXT_BYTES = 16
LAST_LINE = 7
LAST_WINDOW = 3
FIRST_YEAR = 2000

YCbCr = Tuple[int, int, int]


class Osd:
    """Text, date and windows over the video. A camera without a display fails with code -1030."""

    def __init__(self, handle: "Handle") -> None:
        self._handle = handle

    @property
    def enabled(self) -> bool:
        value = c_uint8()
        check(NYXUS.XU_OsdGetEnable(self._handle.pointer, ctypes.byref(value)))
        return value.value != 0

    @enabled.setter
    def enabled(self, on: bool) -> None:
        check(NYXUS.XU_OsdSetEnable(self._handle.pointer, on))

    def reset(self) -> None:
        """Clears everything."""
        check(NYXUS.XU_OsdReset(self._handle.pointer))

    def text(self, line: int) -> str:
        require(0 <= line <= LAST_LINE, "lines are 0 to 7")
        buffer = (c_uint8 * TEXT_BYTES)()
        check(NYXUS.XU_OsdGetString(self._handle.pointer, line, buffer))
        return bytes(buffer).split(b"\0")[0].decode("ascii", errors="replace")

    def set_text(self, line: int, text: str) -> None:
        """Line 0 to 7, up to 16 ASCII characters; "" clears it."""
        require(0 <= line <= LAST_LINE and len(text) <= TEXT_BYTES and text.isascii(),
                "a text has up to 16 ASCII characters, in lines 0 to 7")
        buffer = (c_uint8 * TEXT_BYTES)(*text.encode())
        check(NYXUS.XU_OsdSetString(self._handle.pointer, line, buffer))

    @property
    def time(self) -> datetime.datetime:
        """The camera's clock. ValueError while it shows no valid time."""
        year, *rest = self._datetime().data[:6]
        return datetime.datetime(FIRST_YEAR + year, *rest)

    @time.setter
    def time(self, time: datetime.datetime) -> None:
        require(FIRST_YEAR <= time.year < FIRST_YEAR + 100, "the camera's years are 2000 to 2099")
        record = self._datetime()
        record.data[:6] = (time.year - FIRST_YEAR, time.month, time.day, time.hour, time.minute,
                           time.second)
        check(NYXUS.XU_OsdSetDatetime(self._handle.pointer, ctypes.byref(record)))

    def show_time(self, on: bool = True) -> None:
        """Shows the date-time stamp, together with `enabled`."""
        check(NYXUS.XU_OsdEnableDatetime(self._handle.pointer, on))

    def set_transparent(self, on: bool) -> None:
        """Lets the picture shine through the background of the text."""
        check(NYXUS.XU_OsdEnableTransparent(self._handle.pointer, on))

    def set_window(self, index: int, column: int, row: int, width: int, height: int,
                   shown: bool = True) -> None:
        """A filled rectangle, in cells of 16x16 pixels; index 0 to 3."""
        require(0 <= index <= LAST_WINDOW, "windows are 0 to 3")
        values = _bytes(index, column, row, width, height, int(shown))
        record = OsdWindow((c_uint8 * 9)(*values))
        check(NYXUS.XU_OsdSetWindow(self._handle.pointer, ctypes.byref(record)))

    def set_colors(self, text: YCbCr, background: YCbCr, windows: YCbCr) -> None:
        """Y, Cb and Cr of the text, its background and the windows."""
        record = OsdColor((c_uint8 * 9)(*_bytes(*text, *background, *windows)))
        check(NYXUS.XU_OsdSetColor(self._handle.pointer, ctypes.byref(record)))

    def _datetime(self) -> OsdDatetime:
        record = OsdDatetime()
        check(NYXUS.XU_OsdGetDatetime(self._handle.pointer, ctypes.byref(record)))
        return record


class RateControl(enum.IntEnum):
    CONSTANT_BITRATE = 1
    VARIABLE_BITRATE = 2
    CONSTANT_QP = 3


class FrameType(enum.IntEnum):
    I = 0  # noqa: E741
    IDR = 1
    IDR_WITH_HEADERS = 2


class Bitrate(NamedTuple):
    """Bit/s."""

    peak: int
    average: int


class QpRange(NamedTuple):
    """Bounds of the quantisation parameter, 0 to 51."""

    frame_types: int  #: sum of 1 = I, 2 = P, 4 = B frames
    least: int
    most: int


def set_h264_standard_order(standard: bool = True) -> None:
    """The order of H.264 queries: that of USB video, or that of the first firmware (as it is until it
    is set). A camera rejects the other one (USB: a stalled request). Process-wide."""
    byte("nyxus_h264_standard_order").value = int(standard)


class H264:
    """The H.264 encoder; see set_h264_standard_order()."""

    def __init__(self, handle: "Handle") -> None:
        self._handle = handle

    @property
    def rate_control(self) -> RateControl:
        return RateControl(self._get(NYXUS.H264GetRateCtrlMode, 3)[2])

    @rate_control.setter
    def rate_control(self, mode: RateControl) -> None:
        self._set(NYXUS.H264SetRateCtrlMode, 0, mode)

    @property
    def bitrate(self) -> Bitrate:
        layers = H264BitrateLayers()
        check(NYXUS.H264GetBitrate(self._handle.pointer, ctypes.byref(layers)))
        return Bitrate(layers.dwPeakBitrate, layers.dwAverageBitrate)

    @bitrate.setter
    def bitrate(self, rate: Bitrate) -> None:
        peak, average = rate
        require(0 <= peak < 1 << 32 and 0 <= average < 1 << 32, "a bitrate has 32 bits")
        layers = H264BitrateLayers(0, peak, average)
        check(NYXUS.H264SetBitrate(self._handle.pointer, ctypes.byref(layers)))

    @property
    def qp_range(self) -> QpRange:
        return QpRange(*self._get(NYXUS.H264GetQpSteps, 5)[2:])

    @qp_range.setter
    def qp_range(self, values: QpRange) -> None:
        self._set(NYXUS.H264SetQpSteps, 0, *values)

    @property
    def iframe_period(self) -> int:
        """Frames from one I-frame to the next."""
        period = c_uint16()
        check(NYXUS.H264GetIFramePeriod(self._handle.pointer, ctypes.byref(period)))
        return period.value

    @iframe_period.setter
    def iframe_period(self, frames: int) -> None:
        require(0 <= frames <= 0xFFFF, "the period has 16 bits")
        check(NYXUS.H264SetIFramePeriod(self._handle.pointer, ctypes.byref(c_uint16(frames))))

    @property
    def format(self) -> int:
        """Stream format, 0 or 1."""
        value = c_uint8()
        check(NYXUS.H264GetFormat(self._handle.pointer, ctypes.byref(value)))
        return value.value

    @format.setter
    def format(self, value: int) -> None:
        require(value in (0, 1), "the format is 0 or 1")
        check(NYXUS.H264SetFormat(self._handle.pointer, value))

    def request_frame(self, kind: FrameType, layer: int = 0) -> None:
        """Asks for a frame of a type as the next one."""
        self._set(NYXUS.H264SetNextFrameType, layer, kind, 0)

    def reset(self, layer: int = 0) -> None:
        self._set(NYXUS.H264Reset, layer)

    @property
    def version(self) -> int:
        """Version of the payload layout, binary-coded decimal: 0x0100 is 1.00."""
        return int.from_bytes(self._get(NYXUS.H264GetVersion, 2), "little")

    def _get(self, function: Callable[..., int], length: int) -> bytes:
        payload = (c_uint8 * length)()
        check(function(self._handle.pointer, payload))
        return bytes(payload)

    def _set(self, function: Callable[..., int], layer: int, *values: int) -> None:
        """A payload begins with its layer."""
        require(0 <= layer <= 0xFFFF, "the layer has 16 bits")
        payload = layer.to_bytes(2, "little") + _bytes(*values)
        check(function(self._handle.pointer, (c_uint8 * len(payload)).from_buffer_copy(payload)))


def _bytes(*values: int) -> bytes:
    require(all(0 <= value <= 0xFF for value in values), "values are 0 to 255")
    return bytes(values)
