# SPDX-License-Identifier: Apache-2.0
"""Failures. Each reason has a class; C++ says which one it is, and what to do then stands here."""

from __future__ import annotations

from typing import TYPE_CHECKING, Literal, Optional

if TYPE_CHECKING:
    from ._nyxus import Report

Origin = Literal["library", "usb", "system", "video"]


class Error(Exception):
    """Something failed. As text: what failed and why, and what to do then."""

    advice = ""  #: what to do then; "" where the message says all

    def __init__(self, message: str, code: int = 0, origin: Origin = "library", where: str = "") -> None:
        super().__init__(message)
        self.message = message  #: what failed and why
        self.code = code  #: as the C interface returns it; 0 where nothing returned one
        self.origin: Origin = origin  #: where it began: libNYXUS, libusb, the system, libuvc
        self.where = where  #: where in libNYXUS: "NYXuIoctl.cpp(42): ..., -16393"; "" if nowhere
        self.report: Optional[Report] = None  #: of a change of the ROM: what the ROM holds now

    @property
    def usb_code(self) -> int:
        """The code of libusb (negative), 0 for a failure of another origin."""
        return -(-self.code & 0xFF) if self.origin == "usb" else 0

    @property
    def errno(self) -> int:
        """The errno, 0 for a failure of another origin."""
        return -self.code & 0xFF if self.origin == "system" else 0

    def __str__(self) -> str:
        return (self.message + (f"; {self.advice}" if self.advice else "")
                + (f" [{self.where}]" if self.where else ""))


class Stopped(Error):
    """The caller asked for it: a Stop, or a stream that was stopped."""


class CameraGone(Error):
    """Unplugged, or without power; or there is no camera of this name."""


class NotBack(CameraGone):
    """It has not come back after a restart."""


class TimedOut(Error):
    """The camera, its flash or its video did not answer in time, or it did not restart."""


class PermissionDenied(Error):
    """This user may not open the camera."""


class Busy(Error):
    """Another program or thread has it."""


class Protected(Error):
    """The ROM stays write-protected."""


class Mismatch(Error):
    """The ROM does not hold what was written."""

    advice = "upgrade it again; a ROM that does not keep what is written has to be replaced"


class WrongImage(Error):
    """The image is broken, or not for this camera; nothing was written."""


class NotSupported(Error):
    """This camera cannot do it."""


class UnknownRom(NotSupported):
    """Nothing tells what ROM the camera has."""

    advice = "if it has an EEPROM, say so: nyxus.open(camera, eeprom_bytes=32768)"


class OutOfRange(Error, ValueError):
    """An argument that the call does not take."""


class FileError(Error):
    """A file or folder cannot be read or written."""


class BackupNotKept(Error):
    """The backup cannot be kept, so nothing was written."""

    advice = "UpgradeOptions(backup=False) goes on without one"


class JournalNotKept(Error):
    """The journal cannot be kept, so nothing was written."""


class NoBackup(Error):
    """There is none of this camera."""

    advice = "camera.rom.recover(file) takes another file"


class UncertainBackup(Error):
    """Several may be this camera's."""

    advice = "Backups.candidates(camera) lists them; camera.rom.recover(file) takes one of them"


class NothingToRecover(Error):
    """The camera runs its firmware."""

    advice = "camera.rom.recover(although_healthy=True) recovers all the same"


class NotStarted(Error):
    """The camera does not start what its ROM holds, or not what was written."""

    advice = "upgrade() installs another image, camera.rom.recover(file) an older backup"


class UnreliableReads(Error):
    """What the camera says of its ROM's contents cannot be relied on."""


class Untrusted(Error):
    """No trusted key has signed it, or nobody knows what is trusted."""


class Downgrade(Error):
    """A newer version has been there; nothing was written."""

    advice = "allow_downgrade=True installs it all the same"


class Incomplete(Error):
    """A change of the ROM broke off, and it holds no firmware now, or nobody knows. The reason is the
    `__cause__`; `report` has the backup."""

    advice = ("the camera runs the firmware in its chip: upgrade it again, or put its backup back: "
              "camera.rom.recover()")
