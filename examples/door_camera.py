#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Labels every camera with its serial number and the time, and tells how bright its picture is.

    ./door_camera.py [SECONDS]       # then: waits so long for motion at the first one
"""

import datetime
import sys
import time

import nyxus


def label(camera: nyxus.Camera) -> None:
    camera.osd.set_text(0, camera.info.serial[:16])
    camera.osd.time = datetime.datetime.now()
    camera.osd.show_time()
    camera.osd.enabled = True


def brightness(frame: nyxus.Frame) -> float:
    """Mean luminance: the first byte of each pixel."""
    return float(frame.pixels[:, :, 0].mean())


def wait_for_motion(camera: nyxus.Camera, seconds: float) -> bool:
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if camera.poll_motion():
            return True
        time.sleep(0.2)
    return False


def main() -> int:
    found = nyxus.list_cameras()
    for info in found:
        try:
            with nyxus.open(info) as camera:
                label(camera)
                with camera.stream(320, 240) as stream:
                    frame = stream.next()
                print(f"{info.serial}: {camera.chip}, firmware {camera.version}, "
                      f"brightness {brightness(frame):.0f}")
        except nyxus.Error as error:
            print(f"{info.serial or info.bus_address}: {error}", file=sys.stderr)
    if found and len(sys.argv) > 1:
        with nyxus.open(found[0]) as camera:
            print("motion" if wait_for_motion(camera, float(sys.argv[1])) else "no motion")
    return 0 if found else 1


if __name__ == "__main__":
    sys.exit(main())
