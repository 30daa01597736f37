#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Whole commands on simulated cameras: transfers, pyusb and bare libusb beside the tool, and many
cameras at once.

    commands.py BIN RESULTS        BIN: folder of the programs; RESULTS: JSON file to write

NYXUS_BENCH_QUICK makes it a try-out. It starts itself once more inside a simulation (--inside).
"""
import json
import os
import re
import resource
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from statistics import median, quantiles

HERE = Path(__file__).resolve().parent
QUICK = "NYXUS_BENCH_QUICK" in os.environ
PORTS = 8  # used of the 15 of a simulated bus
UPGRADE = ["upgrade", "--force", "--no-backup"]


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}: exit code {done.returncode}\n{done.stdout}")
    return done.stdout


def seconds(work):
    return costs(work)[0]


def costs(work):
    """Elapsed time, and the processor time of the programs that it has run."""
    def processor():
        used = resource.getrusage(resource.RUSAGE_CHILDREN)
        return used.ru_utime + used.ru_stime
    start, before = time.monotonic(), processor()
    work()
    return time.monotonic() - start, processor() - before


def spread(values):
    q1, _, q3 = quantiles(values, method="inclusive") if len(values) > 1 else values * 3
    return {"median": median(values), "q1": q1, "q3": q3}


def pairs(a, b, count):
    """Medians of a, b and their ratio; each pair in the other order than the one before."""
    spent = {a: [], b: []}
    for number in range(count):
        for work in (a, b) if number % 2 == 0 else (b, a):
            spent[work].append(costs(work))

    def compared(which):
        of_a, of_b = ([cost[which] for cost in spent[work]] for work in (a, b))
        return {"a": spread(of_a), "b": spread(of_b), "ratio": spread([x / y for x, y in zip(of_a, of_b)])}
    return {"pairs": count, "time": compared(0), "processor": compared(1)}


class Bench:
    def __init__(self, bin_folder, work_folder):
        self.bin = Path(bin_folder).resolve()
        self.work = Path(work_folder)
        self.image_number = 0

    def program(self, name):
        return self.bin / name

    def simulate(self, cameras, speed, *command, options=()):
        chosen = [word for camera in cameras for word in ("--camera", camera)]
        return run(self.program("nyxus-sim"), "run", "--speed", speed, *chosen, *options, "--",
                   *command, cwd=self.work)

    def image(self, model, size=32768):
        path = self.work / f"{model}-{size}.bin"
        if not path.exists():
            run(self.program("nyxus-sim"), "image", "--model", model, "--version", "0x0205", "--size",
                size, path)
        return path

    # --- how many transfers a command takes, and how long on the camera's clock

    def count(self, camera, *command):
        log = self.work / "log"
        self.simulate([camera], "fast", *command, options=(f"--log={log}", "--log-all"))
        lines = [line for line in log.read_text().splitlines() if re.search(r"_(CUR|LEN) unit ", line)]
        times = [float(line.split()[0]) for line in lines]
        return {"transfers": len(times), "camera_s": times[-1] - times[0]}

    def round_trips(self):
        results = []
        for model in ("rowan-spi", "fi2-spi", "larch-spi"):
            rom = self.work / f"{model}.rom"
            camera = f"{model},rom={rom}"
            image = self.image(model)
            nyxus = self.program("nyxus")
            read = [self.program("bench_client_read"), 32768]
            upgrade = self.count(camera, nyxus, "upgrade", "--no-backup", image)
            for name, command in (("upgrade again", (nyxus, "upgrade", "--no-backup", image)),
                                  ("compare", (nyxus, "compare", image)),
                                  ("dump", (nyxus, "dump", self.work / "dump.bin"))):
                results.append({"model": model, "command": name, **self.count(camera, *command)})
                (self.work / "dump.bin").unlink(missing_ok=True)
            results.append({"model": model, "command": "upgrade", **upgrade})
            results.append({"model": model, "command": "XuExtRomRead", **self.count(camera, *read)})
        return results

    # --- pyusb beside the tool

    def peers(self):
        model = "rowan-spi"
        out = self.work / "peers.json"
        self.simulate([model], "real", sys.executable, __file__, "--inside", self.bin,
                      self.image(model), out)
        return json.loads(out.read_text())

    # --- bare libusb beside the tool

    def bare(self):
        out = self.work / "bare.json"
        self.simulate(["rowan-spi"], "real", sys.executable, __file__, "--bare", self.bin,
                      self.image("rowan-spi"), out)
        return json.loads(out.read_text())

    # --- several cameras

    def batch(self):
        model = "rowan-spi"
        image = self.image(model)
        nyxus = self.program("nyxus")
        results = []
        for repetition in range(1 if QUICK else 3):
            for number in (1, 2, 4, 8, 16):
                command = [nyxus, *UPGRADE, "--all", "--jobs", number, image]
                out = self.work / "seconds"
                cameras = [f"{model},bus={1 + place // PORTS}" for place in range(number)]
                self.simulate(cameras, "real", sys.executable, __file__, "--time", out,
                              *command)
                results.append({"cameras": number, "seconds": float(out.read_text())})
        by_number = {}
        for result in results:
            by_number.setdefault(result["cameras"], []).append(result["seconds"])
        return {"way": "nyxus upgrade --all",
                "times": {str(number): spread(times) for number, times in by_number.items()}}


def inside(bin_folder, image, out):
    """In the simulation: whole commands in turns on its camera."""
    nyxus = Path(bin_folder) / "nyxus"
    peer = HERE / "peers" / "rom.py"
    work = Path(out).parent

    def dump_by(*command):
        path = work / "peer.bin"
        path.unlink(missing_ok=True)
        run(*command, path)

    count = 2 if QUICK else 9
    results = {
        "upgrade": pairs(lambda: run(nyxus, *UPGRADE, image),
                         lambda: run(sys.executable, peer, "upgrade", image), count),
        "dump": pairs(lambda: dump_by(nyxus, "dump"), lambda: dump_by(sys.executable, peer, "dump"),
                      count),
    }
    if (work / "peer.bin").read_bytes() != Path(image).read_bytes():
        sys.exit("what was dumped is not the image")
    Path(out).write_text(json.dumps(results))


def beside_bare(bin_folder, image, out):
    """In the simulation: commands by nyxus and by libusb alone, which transfer the same and write the
    same file; nyxus prints results only. A start is a dump of one exchange."""
    nyxus, peer = Path(bin_folder) / "nyxus", Path(bin_folder) / "bench_bare_rom"
    folder = Path(out).parent
    ours, theirs = folder / "ours.bin", folder / "theirs.bin"
    count = 2 if QUICK else 15
    size = Path(image).stat().st_size

    def compared(depth, command, file, peer_file=None, size=size, peer_depth=1):
        return pairs(lambda: run(nyxus, *command, "-q", "--queue", depth, file),
                     lambda: run(peer, command[0], peer_file or file, size, peer_depth), count)

    def start(depth, peer_depth):
        return compared(depth, ["dump", "--size", 32], ours, theirs, 32, peer_depth)

    # One at a time beside one at a time, queued beside the same depth, and queued beside one at a time.
    results = {}
    for depth, peer_depth, way, goals in ((1, 1, "one at a time", (1.05, 1.1)),
                                          (16, 16, "both queued", None),
                                          (16, 1, "queued / bare one at a time", (1.0, None))):
        start_up = start(depth, peer_depth)
        for name, command, files in (("upgrade", UPGRADE, (image,)),
                                     ("dump", ["dump", "--size", size], (ours, theirs)),
                                     ("compare", ["compare"], (image,))):
            results[f"{name}, {way}"] = {
                **compared(depth, command, *files, peer_depth=peer_depth), "start": start_up, "goals": goals}
        if ours.read_bytes() != theirs.read_bytes() or ours.read_bytes() != Path(image).read_bytes():
            sys.exit("what was dumped is not the image")
    results["upgrade, queued / nyxus one at a time"] = {
        **pairs(lambda: run(nyxus, *UPGRADE, "-q", image),
                lambda: run(nyxus, *UPGRADE, "-q", "--queue", 1, image), count),
        "start": start_up, "goals": (1.0, None)}
    Path(out).write_text(json.dumps(results))


def main():
    if sys.argv[1] == "--bare":
        return beside_bare(*sys.argv[2:])
    if sys.argv[1] == "--inside":
        return inside(*sys.argv[2:])
    if sys.argv[1] == "--time":
        Path(sys.argv[2]).write_text(str(seconds(lambda: run(*sys.argv[3:]))))
        return None
    with tempfile.TemporaryDirectory() as work:
        bench = Bench(sys.argv[1], work)
        results = {name: getattr(bench, name)() for name in ("round_trips", "peers", "bare", "batch")}
    Path(sys.argv[2]).write_text(json.dumps(results, indent=1))
    return None


if __name__ == "__main__":
    main()
