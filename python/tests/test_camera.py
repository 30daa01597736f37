# SPDX-License-Identifier: Apache-2.0
import datetime
import subprocess
import sys
import threading

import pytest

import nyxus
from conftest import simulator


def test_cameras_are_listed_and_found_by_each_of_their_names():
    assert [info.serial for info in nyxus.list_cameras()] == ["A1", "E1", "B1", "U1", "G1", "M1", "F1"]
    info = nyxus.find_camera("E1")
    for name in (info.port_path, info.bus_address, f"{info.bus:03}:{info.address:03}"):
        assert nyxus.find_camera(name) == info and nyxus.wait_for_cameras(name) == [info]
    with pytest.raises(nyxus.OutOfRange, match="7 cameras match"):
        nyxus.find_camera()
    for name in ("A2", "1:", ":1", "1:999999"):
        with pytest.raises(nyxus.CameraGone) as none:
            nyxus.open(name)
        assert (none.value.usb_code, none.value.origin) == (-4, "usb")


SETTINGS = [
    (lambda c: c, "flip", True), (lambda c: c, "mirror", True), (lambda c: c, "mjpeg_gain", 20),
    (lambda c: c, "i2c_config", 0x60), (lambda c: c, "motion_setting", b"\x01\x20\0\0"),
    (lambda c: c.osd, "enabled", True), (lambda c: c.h264, "iframe_period", 30),
    (lambda c: c.h264, "format", 1),
    (lambda c: c.osd, "datetime", bytes([26, 5, 1, 12, 0, 0, 2, 3])),
]


@pytest.mark.parametrize("part, name, value", SETTINGS, ids=[name for _, name, _ in SETTINGS])
def test_a_setting_is_read_back(camera, part, name, value):
    nyxus.set_h264_standard_order()
    setattr(part(camera), name, value)
    assert getattr(part(camera), name) == value


def test_what_has_arguments_is_read_back(camera):
    camera.write_registers(0x0B00, b"\x12\x34")
    assert camera.read_registers(0x0B00, 2) == b"\x12\x34"
    camera.write_i2c(0x10, bytearray(b"\x55\xAA"))
    assert camera.read_i2c(0x10, 2) == b"\x55\xAA"
    camera.set_gpio(3, True)
    assert camera.gpio() == [None] * 3 + [True] + [None] * 12
    camera.osd.set_transparent()
    camera.osd.show_time(False)
    assert camera.osd.transparent and not camera.osd.shows_time
    camera.osd.set_text(2, "Front door")
    camera.osd.set_window(0, 2, 3, 10, 4)
    camera.osd.set_colors((235, 128, 128), (16, 128, 128), (81, 90, 240))
    window, colors = camera.osd.window, camera.osd.colors
    assert (window.index, window.column, window.row, window.width, window.height, window.shown) == (0, 2, 3, 10, 4, True)
    assert colors == ((235, 128, 128), (16, 128, 128), (81, 90, 240))
    camera.osd.time = datetime.datetime(2026, 5, 1, 12, 0, 0)
    assert camera.osd.text(2) == "Front door"
    assert camera.osd.time.date() == datetime.date(2026, 5, 1)
    nyxus.set_h264_standard_order()
    camera.h264.set_rate_control(nyxus.RateControl.VBR)
    camera.h264.set_bitrate(nyxus.Bitrate(4_000_000, 2_000_000))
    camera.h264.set_qp_range(nyxus.QpRange(7, 20, 40))
    camera.h264.request_frame(nyxus.FrameType.IDR)
    rate, qp = camera.h264.bitrate, camera.h264.qp_range
    assert camera.h264.rate_control is nyxus.RateControl.VBR
    assert (rate.peak, rate.average, qp.frame_types, qp.least, qp.most) == (4_000_000, 2_000_000, 7, 20, 40)


def test_raw_requests_have_the_lengths_that_the_camera_says(camera):
    flip = next(control for control in camera.xu_controls() if control.name == "ZRV_XU_FLIP")
    camera.flip = True
    before = camera.get_xu(flip.selector)
    assert len(before) == flip.size
    for wrong in (b"", before + b"\0"):
        with pytest.raises(nyxus.OutOfRange, match=f"has {flip.size} bytes"):
            camera.set_xu(flip.selector, wrong)
    camera.set_xu(flip.selector, bytes(flip.size))
    assert camera.flip is False
    with pytest.raises(nyxus.NotSupported):
        camera.get_xu(0xEE)


def test_motion_is_told_once(camera):
    camera.poll_motion()
    simulator("do", "motion-alarm", "--camera", "A1")
    assert [camera.poll_motion(), camera.poll_motion()] == [True, False]


def test_standard_controls_are_listed_and_set():
    with nyxus.open("M1") as camera:
        assert [c.name for c in camera.list_controls()] == [
            "brightness", "contrast", "hue", "saturation", "white_balance", "gain", "zoom"]
        camera.set_control("hue", -9000)
        hue = camera.get_control("hue")
        assert (hue.minimum, hue.maximum, hue.default_value, hue.value) == (-18000, 18000, 0, -9000)
        for name, value, message in (("zoom", 99, "'zoom' ranges from 100 to 400"), ("pan", 0, "no control"),
                                     ("volume", 0, "no standard control")):
            with pytest.raises(nyxus.OutOfRange, match=message):
                camera.set_control(name, value)


@pytest.mark.parametrize("act", [
    lambda c: c.read_registers(0x10000, 1), lambda c: c.read_registers(0, -1),
    lambda c: c.read_i2c(0, 9), lambda c: c.write_i2c(0x200, b"x"), lambda c: c.set_gpio(16, True),
    lambda c: c.set_led(0, 256), lambda c: c.osd.set_text(8, "x"), lambda c: c.osd.set_text(0, "x" * 17),
    lambda c: c.osd.set_text(0, "\u00e9"), lambda c: setattr(c, "motion_setting", b"123"),
    lambda c: c.h264.set_qp_range(nyxus.QpRange(7, 20, 256)), lambda c: c.rom.read(0, -1),
    lambda c: c.stream(-1, 2), lambda c: c.stream(fps=float("nan")), lambda c: c.stream(format="YUYV2"),
    lambda c: nyxus.open("U1", eeprom_bytes=0x8001)])
def test_arguments_out_of_range_are_refused(camera, act):
    with pytest.raises(ValueError) as refused:
        act(camera)
    assert isinstance(refused.value, nyxus.OutOfRange) and refused.value.code == -1036


@pytest.mark.parametrize("act", [
    lambda c: c.write_registers(0, "text"), lambda c: c.rom.upgrade(b"bytes"), lambda c: c.set_control("hue", 1.5),
    lambda c: nyxus.open(7), lambda c: c.rom.upgrade(None), lambda c: nyxus.UpgradeOptions(keep="whole"),
    lambda c: nyxus.wait_for_cameras("A1", on_event=None, stop=7)])
def test_other_types_are_refused(camera, act):
    with pytest.raises((TypeError, RuntimeError)):
        act(camera)


def test_a_failure_carries_its_message_and_no_older_one(camera):
    nyxus.set_h264_standard_order(False)
    with pytest.raises(nyxus.Error) as stalled:
        camera.h264.version
    nyxus.set_h264_standard_order()
    assert stalled.value.usb_code == -9 and "NYXuIoctl.cpp(" in stalled.value.message
    with pytest.raises(nyxus.Error) as bare:
        camera.mjpeg_gain = 32
    assert bare.value.code == -1 and "NYXu" not in bare.value.message


def test_a_camera_belongs_to_one_object():
    with nyxus.open("A1") as camera:
        with pytest.raises(nyxus.Busy):
            nyxus.open("A1")
        osd = camera.osd
    camera.close()
    assert camera.closed and camera.chip == "NY6410"
    for act in (lambda: camera.flip, lambda: osd.text(0), camera.list_formats, lambda: camera.rom.read(0, 1),
                camera.stream, camera.restart, lambda: camera.rom.upgrade(nyxus.Firmware(b"x" * 99))):
        with pytest.raises(ValueError, match="has been closed"):
            act()
    assert nyxus.open("A1").osd.enabled in (True, False), "a part keeps its camera open"
    nyxus.open("A1").close()


def test_threads_take_turns_at_a_camera(camera):
    found = []

    def look():
        found.extend(camera.read_registers(0x0B00, 1) for _ in range(20))
    threads = [threading.Thread(target=look) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(found) == 80 and len(set(found)) == 1


def test_a_restarted_camera_is_the_same_object(camera):
    before = camera.info
    camera.restart()
    assert camera.info.port_path == before.port_path and camera.info.address != before.address
    assert camera.flip in (True, False)


def test_cameras_that_come_and_go_are_told():
    stop = nyxus.Stop()
    watch = nyxus.CameraWatch(stop)
    assert [watch.next(0).here for _ in nyxus.list_cameras()] == [True] * 7
    with pytest.raises(nyxus.TimedOut):
        watch.next(timeout_s=0)
    for act, here in (("unplug", False), ("replug", True)):
        simulator("do", act, "--camera", "G1")
        event = next(watch)
        assert (event.here, event.camera.serial) == (here, "G1")
    threading.Timer(0.05, stop.request).start()
    assert list(watch) == []
    with pytest.raises(nyxus.Stopped):
        watch.next(5)


def test_a_wait_for_a_camera_can_be_stopped():
    stop = nyxus.Stop()
    with pytest.raises(nyxus.Stopped):
        nyxus.wait_for_cameras("none", 60, on_event=lambda event: stop.request(), stop=stop)


def test_a_program_may_end_while_its_threads_use_a_camera():
    program = """
import threading, nyxus
camera = nyxus.open("A1")
stream = camera.stream(320, 240)
frame = stream.next()
busy = threading.Event()
def use(call):
    while True:
        call()
        busy.set()
for call in (stream.next, lambda: camera.rom.read(0, 1024), nyxus.list_cameras):
    threading.Thread(target=use, args=[call], daemon=True).start()
busy.wait()
"""
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, check=False, timeout=60)
    assert done.returncode == 0, done.stderr
