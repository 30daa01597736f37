# SPDX-License-Identifier: Apache-2.0
"""The external ROM: read, compare, upgrade, erase.

The library's own production functions report progress as marks on standard error, and keep images in
process-wide memory. These are made of the same steps, whose transfers are short enough to print
nothing: they tell a callback.
"""

import contextlib
import enum
import signal
import threading
from ctypes import c_uint8
from typing import TYPE_CHECKING, Any, Callable, Iterator, NamedTuple, Optional

from ._errors import FAILED, MISMATCH, NO_SUPPORT, RANGE, Error, check, require
from ._image import HEADER_BYTES, MFI_ADDRESS, FirmwareImage, MfiImage
from ._library import NYXUS

if TYPE_CHECKING:
    from ._camera import Handle

# Transfers of up to 511 bytes print no marks. Slices are made of whole exchanges.
READ_SLICE = 256
WRITE_SLICE = 480
MOST_IN_SILENCE = 511
# Slices select no block.
READABLE = 0x10000
RESERVED_BYTES = 256
LARGEST_EEPROM = 0x8000
EEPROM_TYPE_UNIT = 128


class Phase(enum.Enum):
    """What is being done with the ROM."""

    READING = "reading"
    UNLOCKING = "unlocking"
    ERASING = "erasing"
    PROGRAMMING = "programming"
    LOCKING = "locking"
    VERIFYING = "verifying"


class Progress(NamedTuple):
    phase: Phase
    done: int  #: bytes
    total: int  #: bytes; 0 in phases of which nobody knows how long they take


ProgressCallback = Callable[[Progress], Any]


class Comparison(NamedTuple):
    """What a comparison has found."""

    differing: int  #: bytes
    first: Optional[int]  #: offset of the first one

    @property
    def equal(self) -> bool:
        return self.differing == 0


class Rom:
    """The external ROM of a camera."""

    def __init__(self, handle: "Handle") -> None:
        self._handle = handle

    @property
    def size(self) -> int:
        """Bytes that the controller uses."""
        return int(self._handle.record.dwExtRomSize)

    @property
    def is_spi_flash(self) -> bool:
        """An SPI flash, otherwise an I2C EEPROM."""
        return bool(self._handle.record.xSpiMode)

    def assume_eeprom(self, size: int) -> None:
        """Takes a ROM of which nothing is known (RomState.UNKNOWN) for an EEPROM of this size."""
        require(0 < size <= LARGEST_EEPROM, f"an EEPROM has up to {LARGEST_EEPROM} bytes")
        record = self._handle.record
        record.xSpiMode = 0
        record.dwExtRomSize = size
        record.bExtRomType = min(size // EEPROM_TYPE_UNIT, 0x80)
        check(NYXUS.XuSetExtRomType(self._handle.pointer, record.bExtRomType))

    def read(self, address: int, length: int, progress: Optional[ProgressCallback] = None) -> bytes:
        """Reads from the first 64 KiB, which are all that the controller uses. `progress` is called with
        a Progress as bytes go by."""
        return self._read(Phase.READING, address, length, progress or _silent)

    def dump(self, progress: Optional[ProgressCallback] = None) -> bytes:
        """Reads all that the controller uses."""
        return self.read(0, self.size, progress)

    def compare(self, image: FirmwareImage,
                progress: Optional[ProgressCallback] = None) -> Comparison:
        """Compares the ROM with an image, as far as the image goes."""
        return self._compare(Phase.READING, 0, image.data, progress or _silent)

    def upgrade(self, image: FirmwareImage, *, mfi: Optional[MfiImage] = None, verify: bool = True,
                progress: Optional[ProgressCallback] = None) -> None:
        """Programs an image: unlocks, erases (SPI flash), writes MFi image, body and, last, the header,
        locks, and reads everything back. One that breaks off leaves no valid firmware behind.

        An image for another chip (code -1028), or one that does not fit (-1036), is refused before
        anything is written. After any other failure the ROM is unlocked and partly programmed:
        upgrade again. Code -1: the ROM does not hold what was written.

        An interrupt (Ctrl-C), or an exception of `progress`, takes effect when the ROM is complete.
        A board that protects its EEPROM by GPIO 0 needs camera.set_gpio(0, False) first.
        """
        mfi_data = mfi.data if mfi is not None else b""
        self._check(image, mfi_data)
        with _postponed(progress or _silent) as tell:
            self._program(image.data, mfi_data, tell)
            tell(Progress(Phase.LOCKING, 0, 0))
            unlocked = None
            try:
                self._write_enable(False)
            except Error as failure:
                unlocked = failure
            if verify:
                self._verify(0, image.data, tell)
                self._verify(MFI_ADDRESS, mfi_data, tell)
            if unlocked is not None:
                raise Error(unlocked.code, "programmed, but the ROM could not be locked: "
                            + unlocked.message)

    def erase(self) -> None:
        """Erases an SPI flash; the camera runs the firmware in its chip after the next restart. An
        EEPROM cannot be erased: code -38."""
        if not self.is_spi_flash:
            raise Error(NO_SUPPORT, "an EEPROM cannot be erased")
        with _postponed(_silent):
            check(NYXUS.MP_FwErase(self._handle.pointer))

    def read_reserved(self) -> bytes:
        """Reads the reserved area of the flash, 256 bytes."""
        buffer = (c_uint8 * RESERVED_BYTES)()
        check(NYXUS.XU_SpiGetReservedArea(self._handle.pointer, RESERVED_BYTES, buffer))
        return bytes(buffer)

    def write_reserved(self, data: bytes) -> None:
        """Programs its first bytes. Nothing is erased: only bits that are 1 can become 0."""
        require(len(data) <= RESERVED_BYTES, "the reserved area has 256 bytes")
        buffer = (c_uint8 * len(data)).from_buffer_copy(data)
        check(NYXUS.XU_SpiSetReservedArea(self._handle.pointer, len(data), buffer))

    def _check(self, image: FirmwareImage, mfi: bytes) -> None:
        chip = self._handle.record.szIntFwVer[:2].decode("latin-1")
        if image.signature != chip:
            raise Error(MISMATCH, f"the image is for another chip: its signature is "
                        f"{image.signature!r}, this camera needs {chip!r}")
        if len(image.data) > self.size:
            raise Error(RANGE, "the image is larger than the ROM")
        if mfi and (len(image.data) > MFI_ADDRESS or MFI_ADDRESS + len(mfi) > self.size):
            raise Error(RANGE, "the ROM has no room for firmware and MFi image")

    def _program(self, image: bytes, mfi: bytes, tell: ProgressCallback) -> None:
        tell(Progress(Phase.UNLOCKING, 0, 0))
        self._write_enable(True)
        if self.is_spi_flash:
            tell(Progress(Phase.ERASING, 0, 0))
            check(NYXUS.XU_SpiEraseChip(self._handle.pointer))
        total = len(image) + len(mfi)
        done = 0
        tell(Progress(Phase.PROGRAMMING, done, total))
        # The header comes last: until it is there the ROM holds no valid firmware.
        for address, data in ((MFI_ADDRESS, mfi), (HEADER_BYTES, image[HEADER_BYTES:]),
                              (0, image[:HEADER_BYTES])):
            for offset, piece in _slices(data):
                buffer = (c_uint8 * len(piece)).from_buffer_copy(piece)
                check(NYXUS.XuExtRomWrite(self._handle.pointer, address + offset, len(piece), buffer))
                done += len(piece)
                tell(Progress(Phase.PROGRAMMING, done, total))

    def _write_enable(self, enable: bool) -> None:
        kind = self._handle.record.bExtRomType
        check(NYXUS.MP_ExtRomWriteEnable(self._handle.pointer, kind, enable))

    def _read(self, phase: Phase, address: int, length: int, tell: ProgressCallback) -> bytes:
        require(0 <= address and 0 <= length and address + length <= READABLE,
                "only the first 64 KiB of the ROM can be read")
        data = bytearray()
        tell(Progress(phase, 0, length))
        while len(data) < length:
            buffer = (c_uint8 * min(READ_SLICE, length - len(data)))()
            check(NYXUS.XuExtRomRead(self._handle.pointer, address + len(data), len(buffer), buffer))
            data += buffer
            tell(Progress(phase, len(data), length))
        return bytes(data)

    def _compare(self, phase: Phase, address: int, wanted: bytes,
                 tell: ProgressCallback) -> Comparison:
        found = self._read(phase, address, len(wanted), tell)
        different = [i for i, (a, b) in enumerate(zip(found, wanted)) if a != b]
        return Comparison(len(different), different[0] if different else None)

    def _verify(self, address: int, written: bytes, tell: ProgressCallback) -> None:
        if not written:
            return
        comparison = self._compare(Phase.VERIFYING, address, written, tell)
        if not comparison.equal:
            raise Error(FAILED, "the ROM does not hold what was written: "
                        f"{comparison.differing} bytes differ")


def _slices(data: bytes) -> "Iterator[tuple[int, bytes]]":
    offset = 0
    while offset < len(data):
        left = len(data) - offset
        size = left if left <= MOST_IN_SILENCE else WRITE_SLICE
        yield offset, data[offset : offset + size]
        offset += size


def _silent(_: Progress) -> None:
    pass


@contextlib.contextmanager
def _postponed(progress: ProgressCallback) -> Iterator[ProgressCallback]:
    """Half a ROM is no firmware: lets neither an interrupt nor the callback's exceptions break into the
    block; the first of them is raised at its end, unless the block itself has failed."""
    first: "list[BaseException]" = []

    def interrupted(_signal: int, _frame: Any) -> None:
        first.append(KeyboardInterrupt())

    def tell(state: Progress) -> None:
        if first:
            return
        try:
            progress(state)
        except BaseException as error:  # pylint: disable=broad-exception-caught
            first.append(error)

    # Only the main thread hears of interrupts.
    main = threading.current_thread() is threading.main_thread()
    handler = signal.signal(signal.SIGINT, interrupted) if main else None
    try:
        yield tell
    finally:
        if main:
            signal.signal(signal.SIGINT, handler if handler is not None else signal.SIG_DFL)
    if first:
        raise first[0]
