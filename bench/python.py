#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The Python package beside the tool and beside C: processor time of an upgrade per transfer, and of a
stream per frame, both with all that the libraries do.

    python.py BIN RESULTS          BIN: folder of the programs; RESULTS: JSON file to write

NYXUS_BENCH_QUICK makes it a try-out. It starts itself once more inside a simulation.
"""
import json
import os
import resource
import subprocess
import sys
import tempfile
from pathlib import Path

from commands import QUICK, UPGRADE, Bench, run, spread

MODEL = "rowan-spi"
PICTURE = (1280, 720)


def processor_s(work, who=resource.RUSAGE_SELF):
    before = resource.getrusage(who)
    work()
    after = resource.getrusage(who)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def compared(python, other, count):
    """Medians of both and of their ratio; each pair in the other order than the one before."""
    spent = []
    for number in range(count):
        pair = {work: work() for work in ((python, other) if number % 2 == 0 else (other, python))}
        spent.append((pair[python], pair[other]))
    return {"python_s": spread([a for a, _ in spent]), "other_s": spread([b for _, b in spent]),
            "ratio": spread([a / b for a, b in spent])}


def upgrade(bin_folder, image_file):
    """Of the tool without its start, which a dump of one exchange is. Both upgrade without a backup."""
    import nyxus
    tool = Path(bin_folder) / "nyxus"
    image = nyxus.Firmware.load(image_file)
    options = nyxus.UpgradeOptions(always=True, backup=False)
    with nyxus.open(use=nyxus.Use.TRANSFERS) as camera:
        transfers = camera.rom.plan(image, options).transfers

    def by_python():
        with nyxus.open(use=nyxus.Use.TRANSFERS) as camera:
            return processor_s(lambda: camera.rom.upgrade(image, options, on_event=lambda event: None)) / transfers

    def by_tool():
        of_children = lambda *command: processor_s(lambda: run(tool, *command), resource.RUSAGE_CHILDREN)
        with tempfile.TemporaryDirectory() as folder:
            start = of_children("dump", "--size", 32, "-q", Path(folder) / "start")
        return (of_children(*UPGRADE, "-q", image_file) - start) / transfers
    return {"transfers": transfers, **compared(by_python, by_tool, 3 if QUICK else 15)}


def stream(bin_folder):
    """C asks nyxus_stream_next() for each frame, as Python does; both look at no pixel."""
    import nyxus
    program = Path(bin_folder) / "bench_client_stream"
    frames = 100

    def by_python():
        with nyxus.open() as camera, camera.stream(*PICTURE) as running:
            for _ in range(3):  # settled
                running.next()

            def take():
                for _ in range(frames):
                    running.next().pixels
            return processor_s(take) / frames

    def by_c():
        with tempfile.TemporaryDirectory() as folder:
            result = Path(folder) / "result.json"
            subprocess.run([program, f"--benchmark_out={result}", "stream", "next", *map(str, PICTURE)],
                           check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                           env={**os.environ, "NYXUS_BENCH_QUICK": "1"})
            return json.loads(result.read_text())["benchmarks"][0]["a_processor_s"]
    return compared(by_python, by_c, 3 if QUICK else 15)


def main():
    if sys.argv[1] == "--inside":
        what, bin_folder, out, *rest = sys.argv[2:]
        Path(out).write_text(json.dumps({"upgrade": upgrade, "stream": stream}[what](bin_folder, *rest)))
        return
    with tempfile.TemporaryDirectory() as work:
        bench = Bench(sys.argv[1], work)
        os.environ["PYTHONPATH"] = str(bench.bin.parent / "python")
        os.environ["XDG_STATE_HOME"] = work
        results = {}
        for what, speed, more in (("upgrade", "real", [bench.image(MODEL)]), ("stream", "fast", [])):
            out = bench.work / what
            bench.simulate([MODEL], speed, sys.executable, Path(__file__).resolve(), "--inside", what, bench.bin, out,
                           *more)
            results[what] = json.loads(out.read_text())
    Path(sys.argv[2]).write_text(json.dumps(results, indent=1))


if __name__ == "__main__":
    main()
