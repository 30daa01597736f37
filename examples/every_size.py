#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Receives a frame of every size that the camera streams.

    ./every_size.py [SERIAL|PORT|BUS:ADDRESS]
"""

import sys

import nyxus


def main() -> int:
    with nyxus.open(sys.argv[1] if len(sys.argv) > 1 else "") as camera:
        formats = camera.list_formats()
        for size in formats:
            with camera.stream(size.width, size.height, format=size.format) as stream:
                frame = stream.next()
            print(f"{frame.format} {frame.width}x{frame.height}: {len(frame)} bytes")
    return 0 if formats else 1


if __name__ == "__main__":
    sys.exit(main())
