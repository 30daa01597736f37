# SPDX-License-Identifier: Apache-2.0
"""Firmware and MFi images. Nothing here talks to a camera."""

import os
from ctypes import c_uint8
from typing import Tuple, Union

from ._errors import RANGE, Error, check, require
from ._library import CONSTANTS, NYXUS

FW_CAPACITY = CONSTANTS["NYXUS_FW_BIN_CAPACITY"]
MFI_CAPACITY = CONSTANTS["NYXUS_MFI_BIN_CAPACITY"]
MFI_ADDRESS = CONSTANTS["NYXUS_MFI_ROM_ADDR"]
HEADER_BYTES = 0x40
SMALLEST_FIRMWARE = 0x42  # a header and the signature
MFI_HEADER_BYTES = 0x20
RECORD_HEAD_BYTES = 4
SERIAL_RECORD = 3

Path = Union[str, "os.PathLike[str]"]


class FirmwareImage:
    """Firmware for the external ROM, without the 0xFF bytes at its end."""

    def __init__(self, data: bytes) -> None:
        self.data = bytes(data).rstrip(b"\xff")
        require(SMALLEST_FIRMWARE <= len(self.data) <= FW_CAPACITY,
                f"no firmware image: {len(self.data)} bytes before the erased rest")

    @classmethod
    def load(cls, path: Path) -> "FirmwareImage":
        """Loads a file. OSError when it cannot be read, Error when it is no firmware."""
        return cls(_read(path, FW_CAPACITY))

    @property
    def signature(self) -> str:
        """The two characters with which the internal firmware version of its chip begins."""
        return self.data[HEADER_BYTES:SMALLEST_FIRMWARE].decode("latin-1")


class MfiImage:
    """Accessory information, which lies in the ROM at 0x6000."""

    def __init__(self, data: bytes) -> None:
        require(MFI_HEADER_BYTES <= len(data) <= MFI_CAPACITY,
                f"an MFi image has 32 to {MFI_CAPACITY} bytes")
        self.data = bytes(data)

    @classmethod
    def load(cls, path: Path) -> "MfiImage":
        """Loads a file. OSError when it cannot be read, Error when it is no MFi image."""
        return cls(_read(path, MFI_CAPACITY))

    @property
    def serial(self) -> str:
        """The serial number that it holds, "" if none."""
        start, size = self._descriptor_text()
        characters = self.data[start : start + size : 2]
        end = next((i for i, byte in enumerate(characters) if not 0x20 < byte < 0x7F), len(characters))
        return characters[:end].decode("ascii")

    @serial.setter
    def serial(self, serial: str) -> None:
        """Into the USB descriptor and the record list. The image is made for a length: longer numbers
        do not fit, and shorter ones would leave the end of the old one. The library dumps the
        descriptor on standard error before and after."""
        require(serial != "" and all(" " < c < "\x7f" for c in serial),
                "a serial number consists of printable ASCII characters without blanks")
        room = min(self._descriptor_text()[1] // 2, self._record_text()[1])
        require(len(self.serial) <= len(serial) <= room,
                f"the serial number has {len(serial)} characters, but the MFi image is made for {room}")
        buffer = (c_uint8 * MFI_CAPACITY)(*self.data.ljust(MFI_CAPACITY, b"\xff"))
        check(NYXUS.MP_BinSetSerialNum(buffer, serial.encode("ascii")))
        patched = MfiImage(bytes(buffer)[: len(self.data)])
        require(patched.serial == serial, "the parts of the MFi image overlap")
        self.data = patched.data

    def _word(self, offset: int) -> int:
        """The header and the records consist of big-endian words."""
        return int.from_bytes(self.data[offset : offset + 2], "big")

    def _offset(self, field: int) -> int:
        return (self._word(field) - MFI_ADDRESS) & 0xFFFF

    def _part(self, offset: int, size: int, head: int) -> Tuple[int, int]:
        """Offset and size of what an address of the header leads to, without its head."""
        inside = MFI_HEADER_BYTES <= offset and offset + size <= len(self.data) and size >= head
        return (offset + head, size - head) if inside else (0, 0)

    def _descriptor_text(self) -> Tuple[int, int]:
        """The text of the USB string descriptor, as UTF-16LE."""
        return self._part(self._offset(0x10), self._word(0x0E), 2)

    def _record_text(self) -> Tuple[int, int]:
        """The text of the serial-number record, found as the library finds it."""
        offset, end = self._offset(0x04), self._word(0x02)
        while self._part(offset, RECORD_HEAD_BYTES, 0) != (0, 0):
            length = self._word(offset)
            if self._word(offset + 2) == SERIAL_RECORD:
                return self._part(offset, length, RECORD_HEAD_BYTES)
            offset += length
            if length == 0 or offset >= end:
                break
        return (0, 0)


def _read(path: Path, most: int) -> bytes:
    with open(path, "rb") as file:
        data = file.read(most + 1)
    if len(data) > most:
        raise Error(RANGE, f"'{os.fspath(path)}' is larger than {most} bytes")
    return data


