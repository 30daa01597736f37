#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The application: keeps the cameras of a gate in order.

    ./gatekeeper.py A1 A2        # the serial numbers that belong to this gate
"""

import pathlib
import sys
from typing import Dict, Iterable, List

import nyxus

OLDEST_FIRMWARE = 0x0200


class Trouble(Exception):
    """A camera that needs a person; the text says which and why."""


def inventory() -> Dict[str, str]:
    """The chip of each camera on the bus, by serial number."""
    chips = {}
    for info in nyxus.list_cameras():
        with nyxus.open(info) as camera:
            chips[info.serial] = camera.chip
    return chips


def missing(known: Iterable[str]) -> List[str]:
    """Cameras that belong to the gate and are not there."""
    return sorted(set(known) - {info.serial for info in nyxus.list_cameras()})


def bring_up_to_date(serial: str, image_file: pathlib.Path) -> bool:
    """Programs the image if the camera's firmware is too old, and only then. False: nothing was done."""
    try:
        with nyxus.open(serial) as camera:
            if camera.firmware_version >= OLDEST_FIRMWARE:
                return False
            camera.rom.upgrade(nyxus.Firmware.load(image_file))
            return True
    except nyxus.Error as error:
        raise Trouble(f"{serial}: {error}") from error


def look(serial: str) -> bytes:
    """The bytes of a picture."""
    try:
        with nyxus.open(serial) as camera:
            return bytes(camera.take_picture(320, 240).data)
    except nyxus.Error as error:
        raise Trouble(f"{serial}: {error}") from error


def main() -> int:
    for serial, chip in inventory().items():
        print(f"{serial}: {chip}")
    lost = missing(sys.argv[1:])
    for serial in lost:
        print(f"{serial}: missing", file=sys.stderr)
    return 1 if lost else 0


if __name__ == "__main__":
    sys.exit(main())
