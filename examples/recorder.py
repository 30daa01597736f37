#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Records all cameras at once, each into a file of its own: SERIAL.mjpeg, or SERIAL.yuyv where a camera
has no MJPEG. ffmpeg reads both.

    ./recorder.py FRAMES [WIDTHxHEIGHT]
"""

import sys
from concurrent.futures import ThreadPoolExecutor

import nyxus


def record(info: nyxus.CameraInfo, frames: int, width: int, height: int) -> str:
    with nyxus.open(info) as camera:
        has_mjpeg = ("MJPG", width, height) in [(f.format, f.width, f.height) for f in camera.list_formats()]
        name = f"{info.serial or info.port_path}.{'mjpeg' if has_mjpeg else 'yuyv'}"
        with open(name, "wb") as file, camera.stream(width, height,
                                                     format="MJPG" if has_mjpeg else "YUYV") as stream:
            for _, frame in zip(range(frames), stream):
                file.write(frame.data)
            lost = stream.status.incomplete + stream.status.late
    return f"{name}: {frames} frames, {lost} lost"


def main() -> int:
    width, height = map(int, (sys.argv[2] if len(sys.argv) > 2 else "640x480").split("x"))
    cameras = nyxus.list_cameras()
    failed = not cameras
    with ThreadPoolExecutor(max(len(cameras), 1)) as threads:
        jobs = [threads.submit(record, info, int(sys.argv[1]), width, height) for info in cameras]
        for info, job in zip(cameras, jobs):
            try:
                print(job.result())
            except nyxus.Error as error:
                print(f"{info.serial}: {error}", file=sys.stderr)
                failed = True
    return int(failed)


if __name__ == "__main__":
    sys.exit(main())
