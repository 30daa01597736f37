# SPDX-License-Identifier: Apache-2.0
"""Simulated cameras for test suites.

    with nyxus_simulator.Bus() as bus:
        camera = bus.plug("rowan-spi,serial=A1")
        ...                                  # the program under test finds it by libusb
        camera.unplug()

With pytest, the fixtures `bus` and `camera` do that; see nyxus_simulator.pytest_plugin. Without, start the
interpreter as `nyxus-sim run --test-bus --speed fast -- python3 ...`: what stands below libusb there has to
be loaded before everything else.

Whatever fails raises Error, whose text says why. All functions are thread-safe and block for as long as a
small request to another process takes.
"""

import contextlib
import dataclasses
import json
import os
import socket
import types
from typing import Any, Dict, Iterator, List, Optional, Type

__all__ = ["Bus", "Camera", "Error", "Fault", "Transfer", "why_outside"]

_ROM_CHUNK = 1536  # a request is a line of 4096 characters at most


class Error(RuntimeError):
    """There is no simulated bus, or it refuses: the text says what and why."""


@dataclasses.dataclass(frozen=True)
class Transfer:
    """A control transfer that a camera was asked for."""

    request_type: int
    request: int
    value: int
    index: int
    length: int
    data: bytes  #: the bytes that moved
    status: int  #: 0, or a negative errno of the kernel: -errno.EPIPE for a stall

    @property
    def selector(self) -> int:
        return self.value >> 8

    @property
    def unit(self) -> int:
        return self.index >> 8


@dataclasses.dataclass(frozen=True)
class Fault:
    """A fault that was planned, and how often it has happened."""

    name: str  #: with its place in the text
    strikes: int


def why_outside() -> str:
    """Why this process does not run on a simulated bus; empty when it does."""
    if "NYXUS_SIM_SOCKET" not in os.environ:
        return "it was not started by 'nyxus-sim run --test-bus'"
    with open("/proc/self/maps", encoding="utf-8", errors="replace") as maps:
        if "libnyxus-sim-client.so" not in maps.read():
            return ("LD_PRELOAD was changed after 'nyxus-sim run', or has no effect on this program: "
                    "it has to be set before the interpreter starts")
    return ""


def _ask(command: str, **words: Any) -> Dict[str, Any]:
    place = os.environ.get("NYXUS_SIM_SOCKET", "")
    line = json.dumps({"command": command, **words}) + "\n"
    try:
        with socket.socket(socket.AF_UNIX) as connection:
            connection.connect(place)
            connection.sendall(line.encode())
            with connection.makefile("r", encoding="utf-8") as answer:
                reply = json.loads(answer.readline() or "{}")
    except OSError as error:
        raise Error(f"no simulation listens at '{place}': {error.strerror}") from None
    if not reply.get("ok"):
        raise Error(reply.get("error", "the simulation gave no answer"))
    return dict(reply)


class Camera:
    """A camera that a Bus has plugged in."""

    def __init__(self, serial: str) -> None:
        self.serial = serial  #: by which it is called here; its firmware may show another one on USB

    def __repr__(self) -> str:
        return f"<simulated camera {self.serial}>"

    def unplug(self, *, announced: bool = True) -> None:
        """Take it off the bus; unannounced, only who talks to it notices."""
        _ask("unplug", camera=self.serial, silent=not announced)

    def replug(self) -> None:
        """Plug it in again, and take it off before if it is there: a power cycle, at another address."""
        _ask("replug", camera=self.serial)

    def remove(self) -> None:
        """Take it away for good."""
        _ask("remove", camera=self.serial)

    @property
    def state(self) -> Dict[str, Any]:
        """What `nyxus-sim state` shows: model, plugged, firmware, rom, stream, controls, osd and more."""
        return dict(_ask("state", camera=self.serial)["cameras"][0])

    @property
    def rom(self) -> bytes:
        """All that its ROM holds."""
        return bytes.fromhex(_ask("read-rom", camera=self.serial)["bytes"])

    def set_rom(self, data: bytes, address: int = 0) -> None:
        """Change bytes of the ROM, past firmware and write protection.

        The firmware reads them when it starts: replug() to see them in force.
        """
        for done in range(0, len(data), _ROM_CHUNK):
            _ask("write-rom", camera=self.serial, address=address + done,
                 bytes=data[done:done + _ROM_CHUNK].hex().upper())

    @property
    def transfers(self) -> List[Transfer]:
        """Control transfers since it was plugged in or since forget_transfers(), oldest first."""
        return [Transfer(request_type, request, value, index, length, bytes.fromhex(data), status)
                for request_type, request, value, index, length, data, status
                in _ask("transfers", camera=self.serial)["transfers"]]

    def forget_transfers(self) -> None:
        _ask("forget-transfers", camera=self.serial)

    def set_faults(self, toml: str) -> None:
        """What goes wrong with it from now on, instead of what was planned for it before.

        Tables [[fault]] as in nyxus-faults(5), or "" for nothing. Counters of all faults begin anew.
        """
        _ask("faults", camera=self.serial, toml=toml)

    def raise_motion_alarm(self) -> None:
        """What it sees moves."""
        _ask("motion-alarm", camera=self.serial)

    def touch(self, state: int) -> None:
        """A finger on the detector of the fingerprint board; 0 takes it away."""
        _ask("touch", camera=self.serial, value=state)

    def set_register(self, address: int, value: int) -> None:
        """Write a register of the controller."""
        _ask("register", camera=self.serial, address=address, value=value)


class Bus:
    """The simulated bus of this process, from now on without cameras.

    When it is closed, all that was plugged into it goes, and so do faults. One at a time.
    """

    _exists = False

    def __init__(self) -> None:
        reason = why_outside()
        if reason:
            raise Error(f"no simulated bus: {reason}")
        try:
            _ask("time")
        except Error as error:
            raise Error("the simulation around this program is not for tests, start it by "
                        f"'nyxus-sim run --test-bus': {error}") from None
        if Bus._exists:
            raise Error("there is another Bus in this process")
        _ask("reset")
        Bus._exists = True

    def __enter__(self) -> "Bus":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[types.TracebackType]) -> None:
        self.close()

    def close(self) -> None:
        with contextlib.suppress(Error):  # a simulation that has gone has taken its cameras along
            _ask("reset")
        Bus._exists = False

    def plug(self, description: str = "rowan-spi") -> Camera:
        """Plug a camera in.

        It is written as for `nyxus-sim run --camera`: MODEL[,serial=TEXT][,bus=N][,rom=FILE][,blank];
        MODEL is one of `nyxus-sim models` or a file. Without a serial number the first one is SIM1. At
        most 15 cameras at a time on one bus.
        """
        return Camera(_ask("plug", description=description)["serial"])

    def set_faults(self, toml: str) -> None:
        """What goes wrong with all cameras that are on the bus now; see Camera.set_faults()."""
        _ask("faults", toml=toml)

    @property
    def faults(self) -> List[Fault]:
        """Those of all cameras, in no particular order."""
        return [Fault(row["fault"], row["strikes"]) for row in _ask("strikes")["faults"]]

    def settle(self) -> None:
        """Wait until restarts and unplugs that are under way have happened."""
        _ask("settle")

    def image(self, model: str, version: int) -> bytes:
        """A firmware image that boots on this model, always the same for one version."""
        return bytes.fromhex(_ask("image", model=model, version=version)["bytes"])

    @property
    def has_virtual_time(self) -> bool:
        """Whether nobody waits; else the next two raise Error."""
        return bool(_ask("time")["is_virtual"])

    @property
    def now_us(self) -> int:
        """The cameras' clock in microseconds, since the bus began."""
        time = _ask("time")
        if "now_us" not in time:
            raise Error("time is real on this bus")
        return int(time["now_us"])

    def advance(self, seconds: float) -> None:
        """Let time pass on it at once: erasing ends, faults that wait for their time strike."""
        _ask("advance", us=round(seconds * 1_000_000))


@contextlib.contextmanager
def bus_of_a_test() -> Iterator[Bus]:
    """A Bus for one test. A planned fault that never happened is an error afterwards."""
    with Bus() as bus:
        yield bus
        never = [fault.name for fault in bus.faults if fault.strikes == 0]
    if never:
        raise Error(f"{', '.join(never)} never happened: the test would have passed for nothing")
