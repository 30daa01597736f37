#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Simulated cameras that stream at their rates: what the tool receives, and processor time of the
simulator and of the tool per frame.

    rates.py BIN RESULTS           BIN: folder of the programs; RESULTS: JSON file to write

NYXUS_BENCH_QUICK makes it a try-out. It starts itself once more inside a simulation.
"""
import json
import os
import random
import resource
import sys
import tempfile
import time
from pathlib import Path

from commands import QUICK, Bench, run, spread

STREAMS = (
    # model, what it sees, format, size, frames per second
    ("birch-webcam", "pattern", "mjpeg", "1920x1080", 30),
    ("birch-webcam", "texture", "mjpeg", "1920x1080", 30),
    ("birch-webcam", "film", "mjpeg", "1920x1080", 30),
    ("birch-webcam", "pattern", "yuyv", "640x480", 30),
    ("birch-webcam", "pattern", "yuyv", "1920x1080", 5),
    ("alder-studio", "pattern", "mjpeg", "1920x1080", 60),
    ("alder-studio", "pattern", "yuyv", "1280x720", 24),
)
SECONDS = 5


def simulator_s():
    """Processor time of the process that runs this one, by its clock (sched(7), clock_getcpuclockid(3))."""
    return time.clock_gettime(~os.getppid() << 3 | 2)


def client_s():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def inside(bin_folder, kind, size, rate, out):
    """A few frames are what it costs to begin."""
    rate = int(rate)

    def take(frames):
        before = simulator_s(), client_s()
        said = json.loads(run(Path(bin_folder) / "nyxus", "stream", "--json", "--format", kind,
                              "--size", size, "--fps", rate, "--count", frames))
        return said, simulator_s() - before[0], client_s() - before[1]

    runs = []
    frames, few = SECONDS * rate, rate
    for _ in range(2 if QUICK else 5):
        start, whole = take(few), take(few + frames)
        runs.append([whole[0]["frames_per_second"], whole[0]["dropped"],
                     *((whole[i] - start[i]) / frames for i in (1, 2))])
    rates, dropped, simulator, client = zip(*runs)
    Path(out).write_text(json.dumps({"rate": spread(rates), "dropped": sum(dropped),
                                     "frames": len(runs) * (few + frames), "simulator_s": spread(simulator),
                                     "client_s": spread(client)}))


def camera_of(bench, model, sees):
    """A description of it that sees something else, in the folder of this run."""
    if sees == "pattern":
        return model
    raw, film = bench.work / "texture.yuyv", bench.work / "film.mjpeg"
    if not raw.exists():  # no two pixels alike, as of a room in bad light
        noise = random.Random(1).randbytes(1920 * 1080 * 2)
        raw.write_bytes(noise.translate(bytes(100 + byte // 16 for byte in range(256))))
    text = run(bench.program("nyxus-sim"), "describe", model)
    picture = '[picture]\nfile = "texture.yuyv"\nraw_size = "1920x1080"\n'
    path = bench.work / f"{model}-{sees}.toml"
    path.write_text(text + picture)
    if sees == "film":
        textured = camera_of(bench, model, "texture")
        bench.simulate([textured], "real", bench.program("nyxus"), "stream", "--format", "mjpeg", "--size",
                       "1920x1080", "--count", 10, "--raw", film)
        path.write_text(text + '[picture]\nfile = "film.mjpeg"\n')
    return path


def main():
    if sys.argv[1] == "--inside":
        return inside(*sys.argv[2:])
    with tempfile.TemporaryDirectory() as work:
        bench = Bench(sys.argv[1], work)
        results = {"date": time.strftime("%Y-%m-%d"), "streams": []}
        for model, sees, kind, size, rate in STREAMS:
            out = Path(work) / "out.json"
            bench.simulate([camera_of(bench, model, sees)], "real", sys.executable, "-B", __file__, "--inside",
                           bench.bin, kind, size, rate, out)
            results["streams"].append({"model": model, "sees": sees, "format": kind, "size": size, "fps": rate,
                                       **json.loads(out.read_text())})
    Path(sys.argv[2]).write_text(json.dumps(results, indent=1))
    return None


if __name__ == "__main__":
    main()
