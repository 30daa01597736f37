# SPDX-License-Identifier: Apache-2.0
import contextlib
import faulthandler
import os
import random
import subprocess
import sys
import time

import pytest

import nyxus
from conftest import SIMULATOR, simulator


def test_frames_come_complete_and_in_order(camera):
    with camera.stream(320, 240) as stream:
        frames = [frame for _, frame in zip(range(4), stream)]
        with pytest.raises(nyxus.Error):
            camera.stream(320, 240)
    stream.stop()
    assert all((f.width, f.height, len(f.data)) == (320, 240, 320 * 240 * 2) for f in frames)
    assert all(a.sequence < b.sequence for a, b in zip(frames, frames[1:]))
    picture = camera.take_picture(320, 240)
    assert len(picture.data) == 320 * 240 * 2


def test_pixels_are_rows_of_two_bytes_with_and_without_numpy(camera, monkeypatch):
    frame = camera.take_picture(320, 240)
    numpy = pytest.importorskip("numpy")
    assert isinstance(frame.pixels, numpy.ndarray) and not frame.pixels.flags.writeable
    with_numpy = frame.pixels[17, 5].tobytes()
    monkeypatch.setitem(sys.modules, "numpy", None)
    pixels = frame.pixels
    assert isinstance(pixels, memoryview) and pixels.shape == (240, 320, 2)
    assert bytes([pixels[17, 5, 0], pixels[17, 5, 1]]) == with_numpy


def test_every_format_streams():
    with nyxus.open("M1") as camera:
        formats = {(f.format, f.width, f.height): f.rates for f in camera.formats()}
        assert formats["MJPG", 1920, 1080] == pytest.approx((30, 15), rel=1e-3)
        assert ("YUYV", 640, 480) in formats
        with camera.stream(1280, 720, fps=15, format="MJPG") as stream:
            frames = [frame for _, frame in zip(range(3), stream)]
            assert stream.status.rate == pytest.approx(15, rel=1e-3)
            assert stream.status.frames >= 3 and stream.status.incomplete == 0
        assert all(f.format == "MJPG" and f.data[:2] == b"\xff\xd8" for f in frames)
        with pytest.raises(nyxus.Error):
            frames[0].pixels
        with pytest.raises(nyxus.Error):
            stream.frame()


def test_a_wait_for_a_frame_has_a_limit(camera):
    with camera.stream(320, 240) as stream:
        with pytest.raises(TimeoutError):
            while True:
                stream.frame(timeout=0)


def test_standard_controls_are_listed_and_set():
    with nyxus.open("M1") as camera:
        assert [c.name for c in camera.controls()] == [
            "brightness", "contrast", "hue", "saturation", "white_balance", "gain", "zoom"]
        camera.set_control("hue", -9000)
        hue = camera.control("hue")
        assert (hue.minimum, hue.maximum, hue.default, hue.value) == (-18000, 18000, 0, -9000)
        for name, value, message in (("zoom", 99, "'zoom' ranges from 100 to 400"), ("pan", 0, "no control"),
                                     ("volume", 0, "no standard control")):
            with pytest.raises(nyxus.Error, match=message):
                camera.set_control(name, value)


def test_a_size_that_the_camera_lacks_is_refused(camera):
    for start in (camera.stream, camera.take_picture):
        with pytest.raises(nyxus.Error) as refused:
            start(123, 45)
        assert refused.value.origin is nyxus.Origin.VIDEO


def test_a_camera_that_goes_while_it_streams_raises_and_closes_in_peace():
    with nyxus.open("G1") as camera:
        with camera.stream(320, 240) as stream:
            stream.frame()
            simulator("do", "unplug", "--camera", "G1")
            with pytest.raises(nyxus.Error) as gone:
                while True:
                    stream.frame(timeout=1)
            assert gone.value.camera_is_gone
        with pytest.raises(nyxus.Error) as still_gone:
            camera.flip
        assert still_gone.value.camera_is_gone
    simulator("do", "replug", "--camera", "G1")
    with nyxus.open("G1") as camera:
        assert camera.flip is False


RUNS = int(os.environ.get("NYXUS_UNPLUG_RUNS", "12"))


def use(moments):
    """Streams or takes a picture; all that may happen to it is an error that says so."""
    with contextlib.suppress(nyxus.Error, TimeoutError), nyxus.open("G1") as camera:
        if moments.random() < 0.3:
            camera.take_picture(320, 240)
            return
        with camera.stream(320, 240) as stream:
            stream.frame()
            time.sleep(moments.random() * 0.03)


def test_a_camera_may_go_at_any_moment():
    moments = random.Random(int(os.environ.get("NYXUS_UNPLUG_SEED", "1")))
    for _ in range(RUNS):
        silent = ["--silent"] if moments.random() < 0.5 else []
        faulthandler.dump_traceback_later(30, exit=True)  # what hangs is to be seen
        # It takes some milliseconds to start: the camera goes before, during or after.
        time.sleep(moments.random() * 0.02)
        unplug = subprocess.Popen([SIMULATOR, "do", "unplug", "--camera", "G1", *silent])
        use(moments)
        assert unplug.wait() == 0
        faulthandler.cancel_dump_traceback_later()
        simulator("do", "replug", "--camera", "G1")
    with nyxus.open("G1") as camera:
        assert camera.flip is False
