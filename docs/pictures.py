#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Draws the pictures of the tool at work: commands in a real terminal (tmux), as SVG.

    docs/pictures.py [FOLDER_OF_PROGRAMS]     build/dev/bin without it

Needs Debian's tmux and python3-rich.
"""
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from rich.console import Console
from rich.text import Text

DOCS = Path(__file__).parent
COLUMNS, LINES = 112, 24
FONT = "ui-monospace, 'DejaVu Sans Mono', Menlo, Consolas, monospace"

# name, title, what is prepared, what is typed, and what the screen shows when the picture is taken
PICTURES = (
    ("upgrade", "four cameras, one image",
     "nyxus-sim image --model rowan-spi --version 0x0205 new.bin",
     ["nyxus-sim run --camera rowan-spi,serial=A1 --camera rowan-spi,serial=A2 --camera rowan-spi,serial=A3 "
      "--camera rowan-spi,serial=A4 -- nyxus upgrade new.bin --all"], r"programming"),
    ("rom-map", "what the ROM holds",
     "nyxus-sim image --model rowan-spi --version 0x0205 new.bin; nyxus-sim image --mfi --serial UNIT-0042 mfi.bin; "
     "nyxus-sim run --rom rom -- nyxus upgrade new.bin --mfi mfi.bin",
     ["nyxus-sim run --rom rom -- nyxus rom map", "nyxus-sim run --rom rom -- nyxus rom read --at 0 --size 64"],
     r"(?s)0030.*\$ $"),
)


def tmux(*arguments):
    return subprocess.run(["tmux", "-L", "nyxus-pictures", *arguments], check=True, stdout=subprocess.PIPE,
                          text=True).stdout


def screen(*options):
    return "\n".join(tmux("capture-pane", "-p", *options).rstrip().split("\n"))


def wait_for(pattern):
    for _ in range(300):
        if re.search(pattern, screen() + " "):
            return
        time.sleep(0.1)
    sys.exit(f"'{pattern}' was never on the screen:\n{screen()}")


def photograph(work, prepare, typed, shows):
    subprocess.run(["bash", "-c", prepare], cwd=work, check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    tmux("-f", "/dev/null", "new-session", "-d", "-x", str(COLUMNS), "-y", str(LINES), "-c", work,
         "env", "PS1=$ ", "bash", "--norc")
    try:
        for line in typed:
            wait_for(r"\$ $")
            tmux("send-keys", line, "Enter")
        wait_for(shows)
        return screen("-e")
    finally:
        tmux("kill-server")


def draw(text, title):
    console = Console(record=True, width=COLUMNS, file=open(os.devnull, "w"), force_terminal=True)
    console.print(Text.from_ansi(text.removesuffix("$")))
    svg = console.export_svg(title=title, unique_id="picture")
    svg = re.sub(r"\s*@font-face \{.*?\}", "", svg, flags=re.S) # a page loads nothing from elsewhere
    return svg.replace("Fira Code, monospace", FONT)


def main(programs):
    os.environ["PATH"] = f"{programs}:{os.environ['PATH']}"
    for name, title, prepare, typed, shows in PICTURES:
        with tempfile.TemporaryDirectory() as work:
            os.environ["XDG_STATE_HOME"] = work
            (DOCS / f"{name}.svg").write_text(draw(photograph(work, prepare, typed, shows), title))
        print(DOCS / f"{name}.svg")


main(Path(sys.argv[1] if len(sys.argv) > 1 else "build/dev/bin").resolve())
