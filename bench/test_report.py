# SPDX-License-Identifier: Apache-2.0
"""report.py on figures that are made up: what it writes, and when it leaves the page alone."""
import json
import subprocess
import sys
from pathlib import Path

import pytest

REPORT = Path(__file__).with_name("report.py")
SECTIONS = ("machine", "summary", "transfer", "null_bus", "rom", "real", "peers", "bare", "kernel",
            "kernel_dump", "round_trips", "streaming", "rates", "python", "batch", "growth")
PAGE = "".join(f"<!-- {name} -->\nas it was\n<!-- end -->\n" for name in SECTIONS)


def counter(name, value, width):
    return {name: value, f"{name}_q1": value * (1 - width / 2), f"{name}_q3": value * (1 + width / 2)}


def dump_entry(ratio, width):
    entry = {"name": "kernel_dump/32/16/iterations:20/manual_time", "queued_a_s": 0.1, "queued_b_s": 0.1,
             "single_b_s": 0.4}
    for name, value in (("queued_ratio", ratio), ("single_ratio", 0.25), ("bare_single_ratio", 0.3)):
        entry.update(counter(name, value, width))
    return entry


def report(folder, entries, *options):
    (folder / "kernel.json").write_text(json.dumps({"benchmarks": entries}))
    page = folder / "page.md"
    page.write_text(PAGE)
    done = subprocess.run([sys.executable, REPORT, folder, page, *options], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, check=False)
    return done, page.read_text()


def test_a_quiet_run_is_written_and_nothing_else_changes(tmp_path):
    done, page = report(tmp_path, [dump_entry(1.0, 0.1), dump_entry(1.2, 0.1)])
    assert done.returncode == 0, done.stderr
    assert "| 32 | 16 | 100 ms | 100 ms | 1.000 (0.950 to 1.050) | 400 ms | 0.250" in page
    assert (page.count("| met |"), page.count("| **missed** |")) == (1, 1)
    assert page.count("as it was") == len(SECTIONS) - 2  # the kernel's two tables


@pytest.mark.parametrize("widths, is_noisy", [((0.16,), True), ((0.1, 0.1, 0.9), False),
                                              ((0.1, 0.9, 0.9), True)])
def test_a_noisy_run_is_refused_with_section_and_width(tmp_path, widths, is_noisy):
    entries = [dump_entry(1.0, width) for width in widths]
    done, page = report(tmp_path, entries)
    assert (done.returncode != 0) == is_noisy
    assert (page == PAGE) == is_noisy
    assert report(tmp_path, entries, "streaming")[0].returncode == 0  # what is noisy is older
    if is_noisy:
        assert f"kernel_dump: {sorted(widths)[len(widths) // 2]:.2f}" in done.stderr
        assert report(tmp_path, entries, "--try-out")[0].returncode == 0
