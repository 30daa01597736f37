#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Programs every camera that is connected, restarts it, and tells which ones have passed.

    ./production.py firmware.bin
"""

import sys

import nyxus


def passes(info: nyxus.CameraInfo, image: nyxus.Firmware) -> bool:
    try:
        with nyxus.open(info, nyxus.Use.TRANSFERS) as camera:
            report = camera.rom.upgrade(image)
            camera.restart()
            camera.check_started()
            camera.rom.check_reports(image)
            print(f"PASS {info.serial}: from {report.version_before} to {camera.version}")
        return True
    except nyxus.Error as error:
        print(f"FAIL {info.serial or info.port_path}: {error}")
        return False


if __name__ == "__main__":
    firmware = nyxus.Firmware.load(sys.argv[1])
    results = [passes(info, firmware) for info in nyxus.list_cameras()]
    sys.exit(0 if results and all(results) else 1)
