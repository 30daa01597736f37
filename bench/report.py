#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Prints what has been measured as tables, and puts them into a document.

    report.py RESULTS DOCUMENT [--try-out] [MEASURED ...]

RESULTS is the folder that run.sh fills. In DOCUMENT, all between '<!-- NAME -->' and '<!-- end -->' is
replaced by the tables of that name. A measurement that failed has a file NAME.failed instead of
NAME.json, whose text is told in the table's place; what was not measured in this run stays as it is.
Where the quartiles of what is MEASURED (all, if nothing is named; else the rest is older) say that the
machine was not quiet, DOCUMENT is left alone, but for a try-out.
"""
import datetime
import json
import re
import sys
from pathlib import Path
from statistics import median

# How far apart the quartiles may be, as a share of their median, in the middle of a table's figures.
WIDEST = 0.15


def scaled(value, units):
    for factor, unit in units:
        if value >= factor:
            return f"{value / factor:.3g} {unit}"
    factor, unit = units[-1]
    return f"{value / factor:.3g} {unit}"


def duration(value):
    return scaled(value, ((1, "s"), (1e-3, "ms"), (1e-6, "µs"), (1e-9, "ns")))


def size(value):
    return scaled(value, ((1 << 20, "MiB"), (1 << 10, "KiB")))


widths = []  # of what the tables have shown


def spread(entry, name, text):
    """Median and quartiles of a benchmark's counter, or of a command's result."""
    values = entry[name] if isinstance(entry.get(name), dict) else {
        "median": entry[name], "q1": entry[name + "_q1"], "q3": entry[name + "_q3"]}
    widths.append((values["q3"] - values["q1"]) / values["median"])
    return f"{text(values['median'])} ({text(values['q1'])} to {text(values['q3'])})"


def ratio(value):
    return f"{value:.3f}"


def verdict(met):
    return "met" if met else "**missed**"


def table(heads, rows):
    lines = [heads, ["---"] * len(heads), *rows]
    return "\n".join("| " + " | ".join(map(str, line)) + " |" for line in lines)


class NotInThisRun(Exception):
    """What the document says of it stays."""


class Results:
    def __init__(self, folder):
        self.folder = Path(folder)
        self.used = set()

    def load(self, name):
        self.used.add(name)
        failed = self.folder / f"{name}.failed"
        if failed.exists():
            raise LookupError(failed.read_text().strip())
        path = self.folder / f"{name}.json"
        if not path.exists():
            raise NotInThisRun
        return json.loads(path.read_text())

    def benchmarks(self, name):
        return self.load(name)["benchmarks"]


def topic(entry):
    """The parts of a benchmark's name, without how often it ran."""
    return [part for part in entry["name"].split("/") if ":" not in part and part != "manual_time"]


def machine(results):
    context = results.load("null_bus")["context"]
    model = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    tried = sorted(path.stem for path in results.folder.glob("*.quick"))
    quick = f" Only tried out with few pairs (`--quick`): {', '.join(tried)}." if tried else ""
    return (f"Measured on {datetime.date.today()}, preset `bench` (Release), on {context['num_cpus']} cores "
            f"of {model.group(1) if model else 'an unknown processor'}; load average "
            f"{context['load_avg'][0]:.1f} at the start.{quick}")


def bounds(values, text):
    values = list(values)
    return f"{text(min(values))} to {text(max(values))}"


def summary(results):
    """A line for each topic that has a goal; one that was not measured has none."""
    lines = []

    def line(what, measured, goal, good):
        good = list(good)
        lines.append((what, measured, goal, verdict(True) if all(good) else
                      f"{verdict(False)} by {good.count(False)} of {len(good)}"))

    def ratios(what, name, counter, goal, chosen=lambda entry: True):
        values = [entry[counter] for entry in results.benchmarks(name) if chosen(entry)]
        line(what, bounds(values, ratio), f"at most {goal:.3f}", [value <= goal for value in values])

    def null():
        entries = results.benchmarks("null_bus")
        line("library alone, per transfer", bounds((e["per_transfer_s"] for e in entries), duration),
             "under 150 ns", [e["per_transfer_s"] < 150e-9 for e in entries])
        line("allocations per transfer", f"{max(e['allocations'] for e in entries):g}", "0",
             [e["allocations"] == 0 for e in entries])

    for add in (lambda: ratios("calls / bare libusb", "transfer", "processor_ratio", 1.01,
                               lambda entry: "claim" not in entry["name"]), null,
                lambda: ratios("upgrade, dump, compare / replay", "rom", "processor_ratio", 1.02),
                lambda: ratios("the same / replay that claims, too", "rom", "claiming_processor_ratio",
                               1.02),
                lambda: ratios("the same on cameras that take their time", "real", "ratio", 1.02)):
        try:
            add()
        except LookupError:
            pass
    return table(("", "medians", "goal", ""), lines)


def transfer(results):
    calls = {"query": "`UvcXuCtrlQueryNYXU`", "register_read": "`XuRegRead`, 8 bytes",
             "claim": "bare libusb with a claim before it"}
    beside = {"libusb": "none", "libuvc": "libuvc's"}
    rows = []
    for entry in results.benchmarks("transfer"):
        _, call, opened = topic(entry)
        rows.append((calls[call], beside[opened], duration(entry["a_processor_s"]),
                     duration(entry["b_processor_s"]), spread(entry, "processor_ratio", ratio),
                     spread(entry, "ratio", ratio),
                     "" if call == "claim" else verdict(entry["processor_ratio"] <= 1.01)))
    return table(("call", "event thread", "library", "bare libusb", "ratio", "of elapsed time",
                  "goal 1.010"), rows)


def null_bus(results):
    calls = {"query": "`UvcXuCtrlQueryNYXU`", "register_read": "`XuRegRead`, 8 bytes",
             "rom_write": "`XuExtRomWrite`, 256 bytes",
             "rom_read": "`XuExtRomRead`, 4 KiB, which prints progress"}
    rows = [(calls[topic(entry)[1]], spread(entry, "per_transfer_s", duration),
             f"{entry['allocations']:g}",
             verdict(entry["per_transfer_s"] < 150e-9 and entry["allocations"] == 0))
            for entry in results.benchmarks("null_bus")]
    return table(("call", "per transfer", "allocations per transfer", "goal 150 ns, 0"), rows)


def rom(results):
    rows = []
    for entry in results.benchmarks("rom"):
        _, operation, model = topic(entry)
        rows.append((model, operation, f"{entry['transfers']:.0f}", duration(entry["a_processor_s"]),
                     duration(entry["b_processor_s"]), spread(entry, "processor_ratio", ratio),
                     spread(entry, "ratio", ratio), verdict(entry["processor_ratio"] <= 1.02),
                     spread(entry, "claiming_processor_ratio", ratio)))
    rows.sort(key=lambda row: row[0])
    return table(("camera", "32 KiB", "transfers", "library", "bare libusb", "ratio",
                  "of elapsed time", "goal 1.020", "to libusb with the claims"), rows)


def real(results):
    rows = []
    for entry in results.benchmarks("real"):
        _, operation, model = topic(entry)
        rows.append((model, operation, duration(entry["required_s"]), duration(entry["a_s"]),
                     f"{entry['a_s'] / entry['required_s']:.3f}",
                     f"{entry['b_s'] / entry['required_s']:.3f}", spread(entry, "ratio", ratio),
                     verdict(entry["ratio"] <= 1.02)))
    return table(("camera", "32 KiB", "required", "library", "library / required",
                  "bare libusb / required", "library / bare libusb", "goal 1.020"), rows)


def peers(results):
    rows = [(f"`nyxus {name}`", duration(entry["time"]["a"]["median"]),
             duration(entry["time"]["b"]["median"]), spread(entry["time"], "ratio", ratio)) for name, entry in results.load("commands")["peers"].items()]
    return table(("command", "nyxus", "pyusb script", "ratio"), rows)


def kernel(results):
    rows = [(spread(entry, "library_s", duration), spread(entry, "libusb_s", duration),
             spread(entry, "kernel_s", duration), spread(entry, "to_libusb", ratio),
             spread(entry, "to_kernel", ratio)) for entry in results.benchmarks("kernel")
            if topic(entry)[0] == "kernel"]
    return table(("library", "bare libusb", "`UVCIOC_CTRL_QUERY`", "library / libusb",
                  "library / kernel"), rows)


def kernel_dump(results):
    rows = []
    for entry in results.benchmarks("kernel"):
        if topic(entry)[0] != "kernel_dump":
            continue
        _, chunk, depth = topic(entry)
        met = entry["queued_ratio"] <= 1 / 0.9 and entry["single_ratio"] <= 1 / 3
        rows.append((chunk, depth, duration(entry["queued_a_s"]), duration(entry["queued_b_s"]),
                     spread(entry, "queued_ratio", ratio), duration(entry["single_b_s"]),
                     spread(entry, "single_ratio", ratio), spread(entry, "bare_single_ratio", ratio),
                     verdict(met)))
    return table(("bytes", "depth", "engine", "bare libusb", "ratio", "engine, one at a time",
                  "ratio", "to bare libusb one at a time", "goal 1.111, 0.333"), rows)


def bare(results):
    rows = []
    for name, entry in results.load("commands")["bare"].items():
        start = entry["start"]
        own = [(entry["time"][side]["median"] - start["time"][side]["median"]) for side in "ab"]
        rows.append((name, *(spread(entry["time"], side, duration) for side in "ab"),
                     spread(entry["time"], "ratio", ratio), f"{own[0] / own[1]:.3f}",
                     spread(entry["processor"], "ratio", ratio),
                     verdict(all(goal is None or entry[what]["ratio"]["median"] <= goal
                                 for what, goal in zip(("time", "processor"), entry["goals"])))
                     if entry["goals"] else ""))
    return table(("command", "nyxus", "bare libusb", "ratio", "without start-up", "of processor time",
                  "goal"), rows)


def round_trips(results):
    entries = results.load("commands")["round_trips"]
    reads = {entry["model"]: entry for entry in entries if entry["command"] == "XuExtRomRead"}
    rows = []
    for entry in entries:
        read = reads[entry["model"]]
        name = "`XuExtRomRead`" if entry is read else f"`nyxus {entry['command']}`"
        rows.append((entry["model"], name, entry["transfers"], duration(entry["camera_s"]),
                     f"{entry['transfers'] / read['transfers']:.2f}"))
    rows.sort(key=lambda row: row[0])
    return table(("camera", "32 KiB", "transfers", "camera's time", "transfers / `XuExtRomRead`"), rows)


def streaming(results):
    ways = {"published": "`startVideoStream`", "callback": "`nyxus_stream_start`, callback",
            "next": "`nyxus_stream_next`"}
    rows = []
    context = results.load("streaming")["context"]
    for entry in results.benchmarks("streaming"):
        _, model, picture, way = topic(entry)
        rows.append((model, picture, ways[way], f"{1 / entry['a_s']:.0f}",
                     f"{1 / entry['b_s']:.0f}", duration(entry["a_processor_s"]),
                     spread(entry, "processor_ratio", ratio),
                     f"{entry['a_copies']:.2f} + {entry['library_copies']:.2f}",
                     f"{entry['b_copies']:.2f}"))
    return table(("camera", "picture", "frames by", "frames/s", "libuvc's", "processor per frame",
                  "ratio to libuvc's", "copies: libuvc's + ours", "bare libuvc's"),
                 rows) + f"\n\nMeasured on {context['date'][:10]}; load average {context['load_avg'][0]:.1f}."


def rates(results):
    sights = {"pattern": "test pattern", "texture": "YUYV from a file", "film": "JPEGs from a file"}
    measured = results.load("rates")
    rows = [(entry["model"], f"{entry['format'].upper()} {entry['size']}", sights[entry["sees"]], entry["fps"],
             spread(entry, "rate", "{:.1f}".format), f"{entry['dropped']} of {entry['frames']}",
             *(spread(entry, side, duration) for side in ("simulator_s", "client_s")))
            for entry in measured["streams"]]
    return table(("camera", "frames", "of", "asked for", "frames/s", "dropped", "simulator per frame",
                  "client per frame"), rows) + f"\n\nMeasured on {measured['date']}."


def batch(results):
    measured = results.load("commands")["batch"]
    one = measured["times"]["1"]["median"]
    rows = [(number, spread(measured["times"], number, duration),
             f"{measured['times'][number]['median'] / one:.2f}",
             f"{int(number) * 60 / measured['times'][number]['median']:.0f}")
            for number in measured["times"]]
    return (table(("cameras", "time", "ratio to one", "cameras per minute"), rows) +
            f"\n\nMeasured with {measured['way']}.")


def python(results):
    measured = results.load("python")
    rows = [(what, per, *(spread(measured[key], side, duration) for side in ("python_s", "other_s")),
             spread(measured[key], "ratio", ratio))
            for key, what, per in (("upgrade", "upgrade of 32 KiB; `nyxus upgrade`", "transfer"),
                                   ("stream", "1280x720; `nyxus_stream_next` in C", "frame"))]
    return table(("beside", "per", "Python", "the other", "ratio"), rows)


def growth(results):
    names = {"upgrade": "upgrade", "read": "`XuExtRomRead`", "read512": "`XuExtRomRead512DW`"}
    rows = []
    for entry in results.benchmarks("growth"):
        _, what, length = topic(entry)
        rows.append((names[what], size(int(length)), f"{entry['transfers']:.0f}",
                     spread(entry, "per_transfer_s", duration)))
    return table(("operation", "bytes", "transfers", "per transfer"), rows)


TOPICS = (machine, summary, transfer, null_bus, rom, real, peers, bare, kernel, kernel_dump, round_trips,
          streaming, rates, python, batch, growth)


def main():
    results, document, try_out = Results(sys.argv[1]), Path(sys.argv[2]), "--try-out" in sys.argv
    measured = set(sys.argv[3:]) - {"--try-out"}
    text = document.read_text()
    noisy = []
    for make in TOPICS:
        name = make.__name__
        widths.clear()
        results.used.clear()
        try:
            content = make(results)
            is_new = not measured or measured & results.used
            if is_new and widths and median(widths) > WIDEST:
                noisy.append(f"{name}: {median(widths):.2f}")
        except NotInThisRun:
            continue
        except LookupError as reason:
            content = f"Not measured: {reason}"
        print(f"\n== {name}\n{content}")
        text, found = re.subn(rf"(<!-- {name} -->\n).*?(<!-- end -->)",
                              lambda match: match[1] + content + "\n" + match[2], text, flags=re.S)
        if found != 1:
            sys.exit(f"{document} has {found} places for '{name}' instead of one")
    if noisy and not try_out:
        sys.exit(f"{document} stays as it is; the machine was not quiet. The quartiles are farther apart "
                 f"than {WIDEST} of their median: {', '.join(noisy)}")
    document.write_text(text)


if __name__ == "__main__":
    main()
