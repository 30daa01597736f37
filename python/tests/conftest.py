# SPDX-License-Identifier: Apache-2.0
"""The tests run inside `nyxus-sim run`, with the cameras that CMakeLists.txt names:

A1 rowan-spi, E1 hawthorn-eeprom, B1 rowan-spi with a blank ROM, G1 rowan-spi to be unplugged,
M1 maple-mjpeg, which streams MJPEG, too, and has many controls.
"""

import json
import os
import subprocess

import pytest

import nyxus

SIMULATOR = os.environ["NYXUS_SIM"]


def simulator(*arguments):
    done = subprocess.run([SIMULATOR, *arguments], check=True, capture_output=True, text=True)
    return json.loads(done.stdout) if done.stdout.startswith(("{", "[")) else done.stdout


@pytest.fixture
def camera():
    with nyxus.open("A1") as opened:
        yield opened


@pytest.fixture
def firmware(tmp_path):
    """A function that makes an image for a model."""
    def make(model="rowan-spi", version="0x0205"):
        path = tmp_path / f"{model}.bin"
        simulator("image", "--model", model, "--version", version, str(path))
        return nyxus.FirmwareImage.load(path)
    return make
