#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""What one would write without the library: upgrade and dump of a camera like rowan-spi with pyusb.

    rom.py upgrade IMAGE | rom.py dump FILE
"""
import sys
import time

import usb.core
import usb.util

EXT_ROM, WRITE_PROTECT, SPI_STATUS = 0x03, 0x0E, 0x12
SET_CUR, GET_CUR = 0x01, 0x81
CHUNK = 32


class Camera:
    def __init__(self):
        self.usb = usb.core.find(idVendor=0x1162)
        if self.usb is None:
            sys.exit("no camera")
        if self.usb.is_kernel_driver_active(0):
            self.usb.detach_kernel_driver(0)
        usb.util.claim_interface(self.usb, 0)

    def set(self, selector, data):
        self.usb.ctrl_transfer(0x21, SET_CUR, selector << 8, 6 << 8, data, 0)

    def get(self, selector, length):
        return self.usb.ctrl_transfer(0xA1, GET_CUR, selector << 8, 6 << 8, length, 0)

    def wrapper(self, selector, flags, address=0, data=b"", length=11):
        self.set(selector, bytes((flags, address >> 8 & 0xFF, address & 0xFF)) +
                 bytes(data).ljust(length - 3, b"\0"))

    def wait(self, mask, value):
        while True:
            self.wrapper(SPI_STATUS, 0)
            if self.get(SPI_STATUS, 11)[3] & mask == value:
                return
            time.sleep(0.002)

    def protect(self, on):
        if not on:
            self.set(WRITE_PROTECT, [0])
        self.wrapper(SPI_STATUS, 0x80, data=[0x8C if on else 0])
        if on:
            self.set(WRITE_PROTECT, [1])
        self.wait(0x0C, 0x0C if on else 0)

    def erase(self):
        self.wrapper(EXT_ROM, 0x40, length=35)
        self.wait(0x01, 0)

    def write(self, address, data):
        for offset in range(0, len(data), CHUNK):
            chunk = data[offset:offset + CHUNK]
            self.wait(0x01, 0)
            self.wrapper(EXT_ROM, 0x80 | len(chunk), address + offset, chunk, 35)

    def read(self, address, length):
        data = bytearray()
        while len(data) < length:
            size = min(CHUNK, length - len(data))
            self.wrapper(EXT_ROM, size, address + len(data), length=35)
            data += self.get(EXT_ROM, 35)[3:3 + size]
        return bytes(data)


def upgrade(camera, path):
    with open(path, "rb") as file:
        image = file.read()
    camera.protect(False)
    camera.erase()
    camera.write(0x40, image[0x40:])
    camera.write(0, image[:0x40])
    camera.protect(True)
    if camera.read(0, len(image)) != image:
        sys.exit("the ROM does not hold the image")


def dump(camera, path):
    data = camera.read(0, 32768)
    with open(path, "wb") as file:
        file.write(data)


if __name__ == "__main__":
    {"upgrade": upgrade, "dump": dump}[sys.argv[1]](Camera(), sys.argv[2])
