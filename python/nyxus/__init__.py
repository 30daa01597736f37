# SPDX-License-Identifier: Apache-2.0
"""Cameras that libNYXUS drives: firmware, features and video.

    import nyxus

    for info in nyxus.list_cameras():
        print(info.bus_address, info.port_path, info.serial, info.product)

    with nyxus.open() as camera:                 # the only one, or by name
        print(camera.chip, camera.version)
        camera.osd.set_text(0, "Front door")
        camera.rom.upgrade(nyxus.Firmware.load("firmware.bin"), on_event=print)
        camera.restart()

What fails raises nyxus.Error or a class of it, with a code, an origin, a message and what to do then.

Threads: any number of them; where two use one camera, one waits for the other. Calls wait without the
interpreter's lock. Those that take their time take `on_event`, which is called with an Event on the
thread of the call, and `stop`, a Stop by which any thread ends them at the next safe point. Ctrl-C does
the same; from the unlocking of a ROM until it is locked again, both wait. Process-wide settings
(set_trace(), set_h264_standard_order()) come before the first camera is opened.
"""

from . import _errors, _nyxus
from ._errors import *  # noqa: F403
from ._nyxus import *  # noqa: F403
from ._task import Task

__all__ = ["Task"]
for _module in (_errors, _nyxus):
    __all__ += [_name for _name in vars(_module) if not _name.startswith("_")]
