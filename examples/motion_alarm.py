#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Waits for the camera's motion alarm, and keeps a picture of what moved.

    ./motion_alarm.py PICTURE.pgm [SERIAL|PORT|BUS:ADDRESS]       # until Ctrl-C
"""

import sys
import time

import nyxus


def save(frame: nyxus.Frame, file: str) -> None:
    """As a grey map: the first byte of each pixel is its luminance."""
    with open(file, "wb") as out:
        out.write(b"P5 %d %d 255\n" % (frame.width, frame.height))
        out.write(frame.pixels[:, :, 0].tobytes())


def main() -> int:
    with nyxus.open(sys.argv[2] if len(sys.argv) > 2 else "") as camera:
        while not camera.poll_motion():
            time.sleep(0.2)
        frame = camera.take_picture(640, 480)
    save(frame, sys.argv[1])
    print(f"motion! {sys.argv[1]} has {frame.width}x{frame.height} pixels")
    return 0


if __name__ == "__main__":
    sys.exit(main())
