# SPDX-License-Identifier: Apache-2.0
"""The tests run inside `nyxus-sim run`, with the cameras that CMakeLists.txt names:

A1 rowan-spi, E1 hawthorn-eeprom, B1 rowan-spi with a blank ROM, U1 hawthorn-eeprom with a blank one,
G1 rowan-spi to be unplugged, M1 maple-mjpeg, which streams MJPEG, too, and has many controls, F1 fi2-board, a fingerprint reader.
"""

import json
import os
import subprocess

import pytest

import nyxus

SIMULATOR = os.environ["NYXUS_SIM"]


def simulator(*arguments):
    done = subprocess.run([SIMULATOR, *map(str, arguments)], check=True, capture_output=True, text=True)
    return json.loads(done.stdout) if done.stdout.startswith(("{", "[")) else done.stdout


@pytest.fixture(autouse=True)
def state_folder(tmp_path, monkeypatch):
    """Backups and journal of this test alone."""
    monkeypatch.setenv("XDG_STATE_HOME", str(tmp_path / "state"))
    return tmp_path / "state" / "nyxus"


@pytest.fixture
def camera():
    with nyxus.open("A1") as opened:
        yield opened


@pytest.fixture
def goner():
    """A camera that is plugged in again afterwards."""
    with nyxus.open("G1") as opened:
        yield opened
    if not any(info.serial == "G1" for info in nyxus.list_cameras()):
        simulator("do", "replug", "--camera", "G1")


@pytest.fixture
def image_file(tmp_path):
    """A function that makes an image for a model."""
    def make(model="rowan-spi", version="0x0205"):
        path = tmp_path / f"{model}-{version}.bin"
        simulator("image", "--model", model, "--version", version, path)
        return path
    return make


@pytest.fixture
def firmware(image_file):
    return lambda *which: nyxus.Firmware.load(image_file(*which))


@pytest.fixture
def rom_of(tmp_path):
    """A function that tells what a camera's ROM holds, whatever the camera says."""
    def read(serial):
        path = tmp_path / "rom.bin"
        simulator("state", "--camera", serial, "--rom", path)
        return path.read_bytes()
    return read
