# SPDX-License-Identifier: Apache-2.0
import datetime
import os
import subprocess
import sys

import pytest

import nyxus
from conftest import simulator


def test_cameras_are_listed_and_found_by_each_of_their_names():
    assert [info.serial for info in nyxus.cameras()] == ["A1", "E1", "B1", "G1", "M1"]
    info = nyxus.find("E1")
    bus, address = info.bus, info.address
    for name in (info.port_path, info.bus_address, f"{bus:03}:{address:03}"):
        assert nyxus.find(name) == info
    with pytest.raises(nyxus.Error) as several:
        nyxus.find()
    assert (several.value.code, several.value.origin) == (-1036, nyxus.Origin.LIBRARY)
    for name in ("A2", "1:", ":1", "1:999999"):
        with pytest.raises(nyxus.Error) as none:
            nyxus.find(name)
        assert none.value.camera_is_gone and none.value.origin is nyxus.Origin.USB


def test_what_was_set_is_read_back(camera):
    assert (camera.chip, camera.family) == ("NY6410", "ROWAN")
    assert camera.runs_external_firmware and camera.rom_state is nyxus.RomState.FIRMWARE
    for name, value in (("flip", True), ("mirror", True), ("mjpeg_gain", 20), ("i2c_config", 0x60),
                        ("motion_setting", b"\x01\x20\0\0")):
        setattr(camera, name, value)
        assert getattr(camera, name) == value
    camera.write_registers(0x0B00, b"\x12\x34")
    assert camera.read_registers(0x0B00, 2) == b"\x12\x34"
    camera.write_i2c(0x10, b"\x55\xAA")
    assert camera.read_i2c(0x10, 2) == b"\x55\xAA"
    camera.set_gpio(3, True)

    osd = camera.osd
    osd.enabled = True
    osd.set_text(2, "Front door")
    osd.time = datetime.datetime(2026, 5, 1, 12, 0, 0)
    osd.set_window(0, 2, 3, 10, 4)
    osd.set_colors((235, 128, 128), (16, 128, 128), (81, 90, 240))
    assert osd.enabled and osd.text(2) == "Front door"
    assert osd.time.date() == datetime.date(2026, 5, 1)

    nyxus.set_h264_standard_order()
    encoder = camera.h264
    for name, value in (("rate_control", nyxus.RateControl.VARIABLE_BITRATE),
                        ("bitrate", nyxus.Bitrate(4_000_000, 2_000_000)),
                        ("qp_range", nyxus.QpRange(7, 20, 40)), ("iframe_period", 30),
                        ("format", 1)):
        setattr(encoder, name, value)
        assert getattr(encoder, name) == value
    encoder.request_frame(nyxus.FrameType.IDR)


def test_motion_is_told_once(camera):
    camera.poll_motion()
    simulator("do", "motion-alarm", "--camera", "A1")
    assert [camera.poll_motion(), camera.poll_motion()] == [True, False]


@pytest.mark.parametrize("act", [
    lambda c: c.read_registers(0x10000, 1), lambda c: c.read_registers(0, -1),
    lambda c: c.read_i2c(0, 9), lambda c: c.write_i2c(0x200, b"x"), lambda c: c.set_gpio(16, True),
    lambda c: c.set_led(0, 256), lambda c: c.osd.set_text(8, "x"), lambda c: c.osd.set_text(0, "x" * 17),
    lambda c: c.osd.set_text(0, "\u00e9"), lambda c: setattr(c, "motion_setting", b"123"),
    lambda c: setattr(c.h264, "qp_range", (7, 20, 256)), lambda c: c.rom.read(0, -1),
    lambda c: c.rom.read(0xFFFF, 2),
    lambda c: c.stream(-1, 2)])
def test_arguments_out_of_range_are_refused(camera, act):
    with pytest.raises(nyxus.Error) as refused:
        act(camera)
    assert refused.value.code == -1036


def test_a_failure_carries_its_message_and_no_older_one(camera):
    with pytest.raises(nyxus.Error) as stalled:
        nyxus.set_h264_standard_order(False)
        camera.h264.version
    assert stalled.value.usb_code == -9 and "NYXuIoctl.cpp(" in stalled.value.message
    with pytest.raises(nyxus.Error) as bare:
        camera.mjpeg_gain = 32
    assert bare.value.code == -1 and "NYXu" not in bare.value.message


def test_a_closed_camera_is_free_for_others_and_of_no_use():
    with nyxus.open("A1") as camera:
        with pytest.raises(nyxus.Error) as busy:
            nyxus.open("A1")
        assert busy.value.usb_code == -6
    camera.close()
    with pytest.raises(ValueError, match="closed"):
        camera.flip
    assert nyxus.open("A1").rom.size == 0x10000, "a part keeps its camera open"
    nyxus.open("A1").close()


def test_the_library_can_be_another_file(tmp_path):
    missing = str(tmp_path / "none.so")
    failed = subprocess.run([sys.executable, "-c", "import nyxus"], capture_output=True, text=True,
                            env={"NYXUS_LIBRARY": missing, "PYTHONPATH": os.environ["PYTHONPATH"]},
                            check=False)
    assert failed.returncode != 0 and missing in failed.stderr
