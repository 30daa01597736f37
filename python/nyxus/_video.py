# SPDX-License-Identifier: Apache-2.0
"""Video."""

import ctypes
import dataclasses
import time
from types import TracebackType
from typing import TYPE_CHECKING, Any, Iterator, List, Optional, Tuple, Type

from ._errors import VIDEO_TIMEOUT, check_video, require
from ._library import (NYXUS, NyStreamFormat, NyStreamFrame, NyStreamRequest, NyStreamStatus,
                       VideoStreamParam)

if TYPE_CHECKING:
    from ._camera import Handle

SECOND_100NS = 10_000_000
LONGEST_WAIT_MS = 200  # so that Ctrl-C is noticed


@dataclasses.dataclass(frozen=True)
class VideoFormat:
    """A size of a format that the camera streams, with its rates."""

    format: str  #: "YUYV", "MJPG", or as the camera announces it
    width: int
    height: int
    rates: Tuple[float, ...]  #: frames per second; of a range, its ends


@dataclasses.dataclass(frozen=True)
class Frame:
    """A frame. YUYV has two bytes a pixel, row after row, and is complete; MJPG is a JPEG file."""

    width: int
    height: int
    sequence: int  #: a gap tells of lost frames
    data: bytes = dataclasses.field(repr=False)
    format: str = "YUYV"

    @property
    def pixels(self) -> Any:
        """`data` of YUYV as height x width x 2: a numpy array where there is numpy, else a
        memoryview. It is read-only and shares the frame's memory."""
        require(self.format == "YUYV", "only YUYV has pixels")
        shape = (self.height, self.width, 2)
        try:
            import numpy
        except ImportError:
            return memoryview(self.data).cast("B", shape)
        return numpy.frombuffer(self.data, dtype=numpy.uint8).reshape(shape)


@dataclasses.dataclass(frozen=True)
class StreamStatus:
    """What a stream has settled on, and what became of its frames."""

    rate: float  #: frames per second
    payload_bytes: int
    frames: int  #: that were good
    incomplete: int  #: that were dropped: too short, or no JPEG
    late: int  #: that were dropped since nobody took them in time


class Stream:
    """Running video; iterating over it gives frames as they come.

    Frames that nobody takes in time are dropped, oldest first. It ends with its `with` block, by
    stop(), and before its camera is closed.
    """

    def __init__(self, handle: "Handle", width: int, height: int, fps: float, format: str) -> None:
        require(all(0 <= value < 1 << 32 for value in (width, height, fps)), "values have 32 bits")
        require(handle.stream is None, "the camera streams already")
        interval = max(round(SECOND_100NS / fps), 1) if fps else 0
        request = NyStreamRequest(_fourcc(format), width, height, min(interval, (1 << 32) - 1))
        self._stream = ctypes.c_void_p()
        self._handle = handle
        self._running = False
        check_video(NYXUS.nyxus_stream_start(handle.pointer, ctypes.byref(request), None, None,
                                             ctypes.byref(self._stream)))
        self._running = True
        handle.stream = self

    def __del__(self) -> None:
        if hasattr(self, "_stream"):
            self.stop()
            NYXUS.nyxus_stream_free(self._stream)

    def __enter__(self) -> "Stream":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.stop()

    def __iter__(self) -> Iterator[Frame]:
        """Frames until the stream is stopped; see frame() for what is raised."""
        while self._running:
            yield self.frame()

    def frame(self, timeout: float = 5.0) -> Frame:
        """The next frame. TimeoutError when none comes within `timeout` seconds, Error when the
        camera is gone or the stream has been stopped."""
        end = time.monotonic() + timeout
        frame = NyStreamFrame()
        while True:
            left_ms = max(int((end - time.monotonic()) * 1000), 0)
            status = NYXUS.nyxus_stream_next(self._stream, min(left_ms, LONGEST_WAIT_MS),
                                             ctypes.byref(frame))
            if status != VIDEO_TIMEOUT:
                break
            if left_ms == 0:
                raise TimeoutError(f"no complete frame within {timeout} s")
        check_video(status)
        data = ctypes.string_at(frame.data, frame.size)
        return Frame(frame.width, frame.height, frame.sequence, data, _text(frame.fourcc))

    @property
    def status(self) -> StreamStatus:
        """Also after the end."""
        status = NyStreamStatus()
        check_video(NYXUS.nyxus_stream_status(self._stream, ctypes.byref(status)))
        return StreamStatus(SECOND_100NS / max(status.interval, 1), status.payload_bytes,
                            status.frames, status.incomplete, status.late)

    def stop(self) -> None:
        """Ends the stream. Calling it again does nothing."""
        if not self._running:
            return
        self._running = False
        self._handle.stream = None
        NYXUS.nyxus_stream_stop(self._stream)


def list_formats(handle: "Handle") -> List[VideoFormat]:
    count = NYXUS.nyxus_list_formats(handle.pointer, None, 0)
    check_video(count)
    records = (NyStreamFormat * count)()
    check_video(NYXUS.nyxus_list_formats(handle.pointer, records, count))
    return [VideoFormat(_text(record.fourcc), record.width, record.height, _rates(record))
            for record in records]


def take_picture(handle: "Handle", width: int, height: int, fps: int) -> Frame:
    require(all(0 <= value < 1 << 32 for value in (width, height, fps)), "values have 32 bits")
    require(handle.stream is None, "the camera streams already")
    param = VideoStreamParam(width=width, height=height, fps=fps)
    status = NYXUS.startVideoStream_snapshot(handle.pointer, None, ctypes.byref(param))
    try:
        check_video(status)
        frame = param.frame.contents
        data = ctypes.string_at(frame.data, frame.data_bytes)
        return Frame(frame.width, frame.height, frame.sequence, data)
    finally:
        NYXUS.stopVideoStream(handle.pointer)


def _rates(record: Any) -> Tuple[float, ...]:
    intervals = record.intervals[:record.interval_count]
    return tuple(SECOND_100NS / interval
                 for interval in intervals or (record.interval_min, record.interval_max) if interval)


def _fourcc(text: str) -> int:
    require(len(text) == 4 and text.isascii(), "a format has four characters")
    return int.from_bytes(text.encode(), "little")


def _text(fourcc: int) -> str:
    return fourcc.to_bytes(4, "little").decode(errors="replace")
