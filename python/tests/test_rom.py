# SPDX-License-Identifier: Apache-2.0
import os
import signal
import subprocess

import pytest

import nyxus
from conftest import simulator
from nyxus import Phase


def phases_of(steps):
    return [step.phase for i, step in enumerate(steps) if i == 0 or steps[i - 1].phase != step.phase]


@pytest.mark.parametrize("serial, model, erases", [("A1", "rowan-spi", True),
                                                   ("E1", "hawthorn-eeprom", False)])
def test_an_upgrade_goes_through_its_phases_and_is_in_the_rom(serial, model, erases, firmware,
                                                              tmp_path):
    image = firmware(model)
    steps = []
    with nyxus.open(serial) as camera:
        camera.rom.upgrade(image, progress=steps.append)
        assert camera.rom.compare(image).equal
        assert camera.rom.dump()[: len(image.data)] == image.data
    assert phases_of(steps) == [Phase.UNLOCKING] + [Phase.ERASING] * erases + [
        Phase.PROGRAMMING, Phase.LOCKING, Phase.VERIFYING]
    assert steps[-1] == (Phase.VERIFYING, len(image.data), len(image.data))
    rom = tmp_path / "rom.bin"
    simulator("state", "--camera", serial, "--rom", str(rom))
    assert rom.read_bytes()[: len(image.data)] == image.data


def test_a_blank_camera_is_opened_when_it_is_asked_for(firmware):
    with pytest.raises(nyxus.Error) as refused:
        nyxus.open("B1")
    assert refused.value.code == -1030
    with nyxus.open("B1", blank=True) as camera:
        assert camera.rom_state is nyxus.RomState.BLANK and camera.rom.is_spi_flash
        camera.rom.upgrade(firmware(version="0x0205"))
    for act in ("unplug", "replug"):
        simulator("do", act, "--camera", "B1")
    with nyxus.open("B1") as camera:
        assert camera.firmware_version == 0x0205
        camera.rom.erase()
        assert set(camera.rom.read(0, 0x1000)) == {0xFF}


def test_images_that_do_not_fit_are_refused_before_anything_is_written(firmware, tmp_path):
    with nyxus.open("E1") as camera:
        before = camera.rom.dump()
        with pytest.raises(nyxus.Error) as other_chip:
            camera.rom.upgrade(firmware("rowan-spi"))
        assert other_chip.value.code == -1028
        too_long = nyxus.FirmwareImage(firmware("hawthorn-eeprom").data.ljust(0x6001, b"Z"))
        with pytest.raises(nyxus.Error) as overlap:
            camera.rom.upgrade(too_long, mfi=nyxus.MfiImage(bytes(4096)))
        assert overlap.value.code == -1036
        with pytest.raises(nyxus.Error) as no_erase:
            camera.rom.erase()
        assert no_erase.value.code == -38
        assert camera.rom.dump() == before
    with pytest.raises(nyxus.Error):
        nyxus.FirmwareImage(b"\x12\xff")
    with pytest.raises(FileNotFoundError):
        nyxus.FirmwareImage.load(tmp_path / "none")


class Broken(Exception):
    pass


def fail(_):
    raise Broken


def interrupt(step):
    if step.phase is Phase.PROGRAMMING:
        os.kill(os.getpid(), signal.SIGINT)


@pytest.mark.parametrize("progress, expected", [(fail, Broken), (interrupt, KeyboardInterrupt)])
def test_what_breaks_into_an_upgrade_waits_until_the_rom_is_complete(camera, firmware, progress,
                                                                     expected):
    version = "0x0301" if progress is fail else "0x0302"
    image = firmware(version=version)
    handler = signal.getsignal(signal.SIGINT)
    with pytest.raises(expected):
        camera.rom.upgrade(image, progress=progress)
    assert camera.rom.compare(image).equal
    assert signal.getsignal(signal.SIGINT) is handler


def test_an_mfi_image_takes_a_serial_number_of_its_length_only(camera, firmware, tmp_path):
    path = tmp_path / "mfi.bin"
    simulator("image", "--mfi", "--serial", "VELKA_0001_LINK", str(path))
    mfi = nyxus.MfiImage.load(path)
    assert mfi.serial == "VELKA_0001_LINK"
    for serial in ("", "VELKA_0002_LIN", "VELKA_0002_LINKS", "VELKA 0002 LINK", "VELKA_0002_LIN\u00e9"):
        with pytest.raises(nyxus.Error):
            mfi.serial = serial
    assert mfi.data == path.read_bytes()
    mfi.serial = "VELKA_0002_LINK"
    camera.rom.upgrade(firmware(), mfi=mfi)
    assert camera.rom.read(0x6000, len(mfi.data)) == mfi.data
    subprocess.run([os.environ["NYXUS_SIM"], "image", "--mfi", "--serial", "VELKA_0002_LINK",
                    str(path)], check=True)
    assert mfi.data.count(b"VELKA_0002_LINK") == 1
