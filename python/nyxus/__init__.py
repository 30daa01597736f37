# SPDX-License-Identifier: Apache-2.0
"""Cameras that libNYXUS drives: firmware, features and video.

    import nyxus

    for info in nyxus.cameras():
        print(info.bus_address, info.port_path, info.serial, info.product)

    with nyxus.open() as camera:                 # the only one, or by name
        print(camera.chip, hex(camera.firmware_version))
        camera.osd.set_text(0, "Front door")
        camera.rom.upgrade(nyxus.FirmwareImage.load("firmware.bin"), progress=print)

What fails raises nyxus.Error with its code, origin and message.

The library is found by its name libNYXUS.so.2, as any program finds it; the environment variable
NYXUS_LIBRARY names another file.

Threads: one thread at a time may use a camera and what belongs to it; other threads run while a call
waits for the camera. cameras() is thread-safe. Open cameras, and change what is process-wide
(set_trace(), set_h264_standard_order()), from one thread at a time. A camera that is connected but does
not answer is waited for without a limit.
"""

from ._camera import Camera, RomState, open
from ._controls import Control
from ._errors import Error, Origin
from ._features import Bitrate, FrameType, H264, Osd, QpRange, RateControl, set_h264_standard_order
from ._image import FirmwareImage, MfiImage
from ._library import set_trace, version
from ._list import CameraInfo, cameras, find
from ._rom import Comparison, Phase, Progress, Rom
from ._video import Frame, Stream, StreamStatus, VideoFormat

__all__ = [
    "Bitrate", "Camera", "CameraInfo", "Comparison", "Control", "Error", "FirmwareImage", "Frame",
    "FrameType", "H264", "MfiImage", "Origin", "Osd", "Phase", "Progress", "QpRange", "RateControl",
    "Rom", "RomState", "Stream", "StreamStatus", "VideoFormat", "cameras", "find", "open",
    "set_h264_standard_order", "set_trace", "version",
]
