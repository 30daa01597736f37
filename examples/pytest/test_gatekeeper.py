# SPDX-License-Identifier: Apache-2.0
"""Tests of the application on simulated cameras."""

import pathlib
import subprocess
import sys

import pytest

import gatekeeper

PROGRAM = pathlib.Path(gatekeeper.__file__)


def rom_writes(camera):
    """Requests to the control of the external ROM that carry bytes to be written."""
    set_cur, external_rom, writes = 0x01, 0x03, 0x80
    return [done for done in camera.transfers
            if (done.request, done.selector, done.unit) == (set_cur, external_rom, 6) and done.data[0] & writes]


@pytest.fixture
def image(bus, tmp_path, monkeypatch):
    monkeypatch.setenv("XDG_STATE_HOME", str(tmp_path))  # where the backups go
    path = tmp_path / "new.bin"
    path.write_bytes(bus.image("rowan-spi", 0x0205))
    return path


def test_the_inventory_names_every_camera(bus):
    assert gatekeeper.inventory() == {}
    bus.plug("rowan-spi,serial=A1")
    bus.plug("hawthorn-eeprom,serial=A2")
    assert gatekeeper.inventory() == {"A1": "NY6410", "A2": "ZR5400"}


@pytest.mark.nyxus_camera("rowan-spi,serial=A1")
def test_a_camera_that_was_unplugged_is_missing_until_it_is_back(camera):
    assert gatekeeper.missing(["A1"]) == []
    camera.unplug()
    assert gatekeeper.missing(["A1"]) == ["A1"]
    # The program as a whole sees the same bus.
    done = subprocess.run([sys.executable, PROGRAM, "A1"], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (1, "A1: missing\n")
    camera.replug()
    assert gatekeeper.missing(["A1"]) == []


def test_an_upgrade_is_made_once(bus, camera, image):
    assert gatekeeper.bring_up_to_date(camera.serial, image)
    assert camera.rom.startswith(image.read_bytes())
    assert rom_writes(camera)
    camera.replug()
    camera.forget_transfers()
    assert not gatekeeper.bring_up_to_date(camera.serial, image)
    assert not rom_writes(camera)


@pytest.mark.parametrize("fault", ['when = { transfer = [100] }\ndo = "stall"',
                                   'when = { transfer = 200 }\ndo = "unplug"'])
def test_an_upgrade_that_fails_names_the_camera(camera, image, fault):
    camera.set_faults(f"[[fault]]\n{fault}")
    with pytest.raises(gatekeeper.Trouble, match=camera.serial):
        gatekeeper.bring_up_to_date(camera.serial, image)


def test_a_picture_is_a_whole_one(camera):
    assert len(gatekeeper.look(camera.serial)) == 320 * 240 * 2
    assert not camera.state["stream"]["streaming"]
    camera.unplug()
    with pytest.raises(gatekeeper.Trouble):
        gatekeeper.look(camera.serial)
