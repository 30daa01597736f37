#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Shows how sharp the middle of the picture is while you turn the lens: the longer the bar, the better.

    ./focus_aid.py [FRAMES [SERIAL|PORT|BUS:ADDRESS]]             # without FRAMES: until Ctrl-C
"""

import sys

import numpy

import nyxus


def sharpness(frame: nyxus.Frame) -> float:
    """How much neighbouring pixels of the middle differ."""
    height, width = frame.height, frame.width
    middle = frame.pixels[height // 4:-height // 4, width // 4:-width // 4, 0].astype(numpy.int16)
    return float(numpy.abs(numpy.diff(middle, axis=1)).mean() + numpy.abs(numpy.diff(middle, axis=0)).mean())


def main() -> int:
    most = int(sys.argv[1]) if len(sys.argv) > 1 else sys.maxsize
    name = sys.argv[2] if len(sys.argv) > 2 else ""
    best = 0.0
    with nyxus.open(name) as camera, camera.stream(640, 480) as stream:
        for number, frame in enumerate(stream, 1):
            now = sharpness(frame)
            best = max(best, now)
            print(f"{now:6.2f} of {best:6.2f} {'#' * round(50 * now / best if best else 0)}")
            if number == most:
                break
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        pass
