# SPDX-License-Identifier: Apache-2.0
"""YUYV video."""

import ctypes
import dataclasses
import queue
from types import TracebackType
from typing import TYPE_CHECKING, Any, Iterator, Optional, Type

from ._errors import NO_DEVICE, VIDEO_NO_DEVICE, Error, Origin, check_video, require
from ._library import LIBUSB, LIBUVC, NYXUS, NyFrameCallback, VideoStreamParam

if TYPE_CHECKING:
    from ._camera import Handle

QUEUED_FRAMES = 4


@dataclasses.dataclass(frozen=True)
class Frame:
    """A complete frame: two bytes a pixel, row after row."""

    width: int
    height: int
    sequence: int  #: a gap tells of lost frames
    data: bytes = dataclasses.field(repr=False)

    @property
    def pixels(self) -> Any:
        """`data` as height x width x 2: a numpy array where there is numpy, else a memoryview. It
        is read-only and shares the frame's memory."""
        shape = (self.height, self.width, 2)
        try:
            import numpy
        except ImportError:
            return memoryview(self.data).cast("B", shape)
        return numpy.frombuffer(self.data, dtype=numpy.uint8).reshape(shape)


class Stream:
    """Running video; iterating over it gives frames as they come.

    Frames that nobody takes in time are dropped, oldest first. It ends with its `with` block, by
    stop(), and before its camera is closed.
    """

    def __init__(self, handle: "Handle", width: int, height: int, fps: int) -> None:
        require(all(0 <= value < 1 << 32 for value in (width, height, fps)), "values have 32 bits")
        require(handle.stream is None, "the camera streams already")
        self._handle = handle
        self._frames: "queue.Queue[Frame]" = queue.Queue(QUEUED_FRAMES)
        self._param = VideoStreamParam(width=width, height=height, fps=fps)
        self._callback = NyFrameCallback(self._on_frame)
        self._running = True
        handle.stream = self
        status = NYXUS.startVideoStream(handle.pointer, self._callback, ctypes.byref(self._param))
        if status < 0:
            self.stop()
            check_video(status)

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
        camera is gone."""
        try:
            return self._frames.get(timeout=timeout)
        except queue.Empty:
            pass
        if LIBUSB.libusb_kernel_driver_active(self._handle.record.usb_handle, 0) == NO_DEVICE:
            raise Error(VIDEO_NO_DEVICE, LIBUVC.uvc_strerror(VIDEO_NO_DEVICE).decode(), Origin.VIDEO)
        raise TimeoutError(f"no complete frame within {timeout} s")

    def stop(self) -> None:
        """Ends the stream. Calling it again does nothing."""
        if not self._running:
            return
        self._running = False
        self._handle.stream = None
        NYXUS.stopVideoStream(self._handle.pointer)

    def _on_frame(self, frame: Any, _param: Any) -> None:
        """Runs on libuvc's thread."""
        taken = _copy(frame.contents)
        while True:
            try:
                return self._frames.put_nowait(taken)
            except queue.Full:
                try:
                    self._frames.get_nowait()
                except queue.Empty:
                    pass


def take_picture(handle: "Handle", width: int, height: int, fps: int) -> Frame:
    require(all(0 <= value < 1 << 32 for value in (width, height, fps)), "values have 32 bits")
    require(handle.stream is None, "the camera streams already")
    param = VideoStreamParam(width=width, height=height, fps=fps)
    status = NYXUS.startVideoStream_snapshot(handle.pointer, None, ctypes.byref(param))
    try:
        check_video(status)
        return _copy(param.frame.contents)
    finally:
        NYXUS.stopVideoStream(handle.pointer)


def _copy(frame: Any) -> Frame:
    """The frame is libuvc's."""
    data = ctypes.string_at(frame.data, frame.data_bytes)
    return Frame(frame.width, frame.height, frame.sequence, data)
