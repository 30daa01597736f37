# SPDX-License-Identifier: Apache-2.0
import contextlib
import faulthandler
import os
import random
import subprocess
import threading
import time

import numpy
import pytest

import nyxus
from conftest import SIMULATOR, simulator


def test_frames_come_complete_and_in_order(camera):
    with camera.stream(320, 240) as stream:
        frames = [frame for _, frame in zip(range(4), stream)]
        with pytest.raises(nyxus.Busy):
            camera.stream(320, 240)
    stream.stop()
    assert all((f.width, f.height, len(f)) == (320, 240, 320 * 240 * 2) for f in frames)
    assert all(a.sequence < b.sequence and a.time_us < b.time_us for a, b in zip(frames, frames[1:]))
    assert abs(frames[-1].time_us / 1e6 - time.monotonic()) < 60
    assert list(stream) == [], "one that was stopped has no more"
    assert len(camera.take_picture(320, 240).data) == 320 * 240 * 2


def test_a_frame_is_an_array_and_stays_as_it_is(camera):
    with camera.stream(320, 240) as stream:
        kept = stream.next()
        array = numpy.asarray(kept)
        copy, view = array.copy(), kept.pixels[17, 5]
        addresses = {stream.next().pixels.__array_interface__["data"][0] for _ in range(12)}
        assert (array == copy).all() and array.shape == (240, 320, 2) and array.dtype == numpy.uint8
        assert array.__array_interface__["data"][0] == kept.pixels.__array_interface__["data"][0]
        assert len(addresses) <= 5, "memory of frames that nobody keeps is used again"
    del kept
    camera.close()
    assert (array == copy).all() and (view == copy[17, 5]).all(), "an array keeps its frame"


def test_every_format_streams():
    with nyxus.open("M1") as camera:
        formats = {(f.format, f.width, f.height): f.rates for f in camera.list_formats()}
        assert formats["MJPG", 1920, 1080] == pytest.approx((30, 15), rel=1e-3)
        assert ("YUYV", 640, 480) in formats
        with camera.stream(1280, 720, fps=15, format="MJPG") as stream:
            frames = [frame for _, frame in zip(range(3), stream)]
            assert stream.status.rate == pytest.approx(15, rel=1e-3)
            assert stream.status.frames >= 3 and stream.status.incomplete == 0
        assert all(f.format == "MJPG" and bytes(f.data[:2]) == b"\xff\xd8" for f in frames)
        with pytest.raises(nyxus.Error, match="only YUYV"):
            frames[0].pixels
        with pytest.raises(nyxus.Stopped):
            while True:  # those that were there
                stream.next()


@pytest.mark.parametrize("size, format", [((123, 45), "YUYV"), ((320, 240), "NV12")])
def test_what_the_camera_lacks_is_refused(camera, size, format):
    for start in (camera.stream, camera.take_picture):
        with pytest.raises(nyxus.NotSupported) as refused:
            start(*size, format=format)
        assert refused.value.origin == "video"


def test_a_wait_for_a_frame_has_a_limit_and_one_thread(camera):
    with camera.stream(320, 240) as stream:
        with pytest.raises(nyxus.TimedOut):
            while True:
                stream.next(timeout_s=0)
        errors = []

        def wait():
            try:
                while True:
                    stream.next(timeout_s=10)
            except nyxus.Error as error:
                errors.append(type(error))
        threads = [threading.Thread(target=wait) for _ in range(2)]
        for thread in threads:
            thread.start()
        while nyxus.Busy not in errors:  # one of them waits already
            time.sleep(0)
        stream.stop()
        for thread in threads:
            thread.join()
    assert sorted(error.__name__ for error in errors) == ["Busy", "Stopped"]


def test_a_camera_can_be_closed_while_a_frame_is_waited_for(camera):
    stream = camera.stream(320, 240)
    stream.next()
    thread = threading.Thread(target=camera.close)
    thread.start()
    with pytest.raises(nyxus.Error):
        while True:
            stream.next()
    thread.join()
    stream.stop()


def test_a_camera_that_goes_while_it_streams_raises_and_closes_in_peace(goner):
    with goner.stream(320, 240) as stream:
        with pytest.raises(nyxus.CameraGone):
            for frame in stream:
                if frame.sequence >= 2:
                    break
            simulator("do", "unplug", "--camera", "G1")
            for frame in stream:
                pass
    with pytest.raises(nyxus.CameraGone):
        goner.flip
    simulator("do", "replug", "--camera", "G1")
    with nyxus.open("G1") as camera:
        assert camera.flip is False


RUNS = int(os.environ.get("NYXUS_UNPLUG_RUNS", "12"))


def use(moments):
    """Streams or takes a picture; all that may happen to it is an error that says so."""
    with contextlib.suppress(nyxus.Error), nyxus.open("G1") as camera:
        if moments.random() < 0.3:
            camera.take_picture(320, 240)
            return
        with camera.stream(320, 240) as stream:
            stream.next()
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
