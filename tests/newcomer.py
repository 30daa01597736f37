#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Does what a page tells a newcomer to do, in one shell, and compares what is printed with the page.

    newcomer.py PAGE FOLDER [FIRST_STEP]

FOLDER is where the commands run, and has a folder 'home' beside the project's. Run is what stands behind
'$ ' in a block of code, up to a heading 'Your own camera'; a block in a language becomes the file that
the line before it names. FIRST_STEP: the number of the first heading to follow.
"""
import difflib
import os
import re
import subprocess
import sys
from pathlib import Path

END = "-- end of the command: "
LIBUVC = re.compile(r"unsupported descriptor subtype VS_COLORFORMAT\n|libusb: .*\n")


def steps(page, first):
    """Pairs (what, text): a command with what it prints, or a file's name with what it holds."""
    number, block, language, before = 0, None, "", ""
    for line in page.read_text().splitlines():
        if line.startswith("## "):
            number = int(line.split()[1].rstrip("."))
            if "Your own camera" in line:
                return
        if not line.startswith("```"):
            if block is not None:
                block.append(line)
            elif line:
                before = line
        elif block is None:
            block, language = [], line[3:]
        else:
            if number >= first:
                yield from parts(block, language, before)
            block = None


def parts(block, language, before):
    text = "\n".join(block) + "\n"
    if language:
        yield re.match(r"`([^`]+)`", before)[1], text
        return
    for part in re.split(r"^(?=\$ )", text, flags=re.MULTILINE):
        if part.startswith("$ "):
            yield "", part[2:]


def comparable(text, home):
    """Without what differs from machine to machine."""
    text = LIBUVC.sub("", text.replace(str(home), "/home/me"))
    text = re.sub(r"failed at 0x\w+", "failed at 0xN", text)  # a few exchanges more or less were under way
    text = re.sub(r"^.* \d+ ?%.*\n", "", text, flags=re.MULTILINE)  # of a machine that takes its time
    text = re.sub(r" at [\d.]+ [KM]iB/s", "", text)
    return re.sub(r"\d+(?:\.\d+)? s\b", "N s", text).splitlines()


class Shell:
    def __init__(self, folder, home):
        environment = {name: value for name, value in os.environ.items() if not name.startswith("XDG_")}
        self.home = home
        self.process = subprocess.Popen(["bash", "--norc"], cwd=folder, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                        env={**environment, "HOME": str(home), "LC_ALL": "C.UTF-8"})

    def run(self, command):
        """What it prints. The next command still finds its exit code."""
        self.process.stdin.write(f"{command} </dev/null\ncode=$?; echo; echo '{END}'; (exit $code)\n")
        self.process.stdin.flush()
        printed = ""
        for line in self.process.stdout:
            if line == END + "\n":
                return printed[:-1]
            printed += line
        sys.exit(f"the shell ended: {printed}")


def main(page, folder, first=1):
    home = folder / "home"
    home.mkdir(exist_ok=True)
    shell = Shell(folder, home)
    different = commands = 0
    for name, text in steps(page, int(first)):
        if name:
            (folder / name).write_text(text)
            continue
        command, shown = text.split("\n", 1)
        printed = shell.run(command)
        commands += 1
        change = list(difflib.unified_diff(comparable(shown, home), comparable(printed, home), "the page shows",
                                           "it prints", lineterm=""))
        if shown.strip() and change:
            different += 1
            print(f"$ {command}", *change, sep="\n")
    print(f"{commands} commands, {different} of them print something else than the page shows")
    return 1 if different or commands == 0 else 0


sys.exit(main(Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve(), *sys.argv[3:]))
