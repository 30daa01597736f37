#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the manual pages that follow from what the programs say of themselves.

    docs/man/generate.py BIN FOLDER     BIN: where nyxus and nyxus-sim are

nyxus(1), a page for each of its commands and nyxus-sim(1) are made of the programs' --help,
nyxus-camera(5) of 'nyxus-sim describe'. What help does not say stands in docs/man/parts, in mdoc:
PAGE.mdoc has text for the description and, behind the line '.\\" after', further sections.
"""
import json
import re
import subprocess
import sys
import textwrap
from pathlib import Path

DATE = "November 21, 2026"
PARTS = Path(__file__).parent / "parts"
BIN = Path(sys.argv[1])


def output(*words):
    return subprocess.run([BIN / words[0], *words[1:]], check=True, text=True,
                          stdout=subprocess.PIPE).stdout


def sentences(text):
    """One sentence a line, as mdoc likes it, and nothing that roff would take for its own."""
    text = text.replace("\\", "\\e")
    lines = re.sub(r"(?<=[.?!]) +(?=[A-Z0-9'\"])", "\n", text).split("\n")
    lines = [row for line in lines
             for row in textwrap.wrap(line, 79, break_on_hyphens=False, break_long_words=False)]
    return "\n".join("\\&" + line if line[:1] in ".'" else line for line in lines)


def literal(lines):
    text = "\n".join(lines).replace("\\", "\\e").replace("-", "\\-")
    return ".Bd -literal -offset indent\n" + text + "\n.Ed\n"


class Entry:
    """A line of help: an option, an argument or a command, and what it is for."""

    def __init__(self, words, text):
        needs = re.search(r" Needs: (\S+)", words)
        words = words.replace(needs[0], "") if needs else words
        words = words.replace(" REQUIRED", "")
        default = re.search(r"(?<=[A-Z\]])=(.+)$", words)
        words = words[:default.start()] if default else words
        words = re.sub(r"(:|\{).*$", "", words)
        self.many = words.endswith("...")
        parts = words.removesuffix("...").replace(",", " ").split()
        self.names = [part for part in parts if part.startswith("-")] or parts[:1]
        self.value = " ".join(parts[len(self.names):])
        self.required = True
        self.text = re.sub(r" \[([^\[\]]+)\]$", r". Default: \1", text.strip())
        if needs:
            self.text += f". Needs {needs[1]}"
        if default:
            self.text += f". Default: {default[1]}"
        if not self.text.endswith("."):
            self.text += "."

    def macro(self, name):
        flag = name[1:]
        return f"Fl {flag}" + (f" Ar {self.value}" if self.value else "")

    def item(self):
        if self.names[0].startswith("-"):
            head = " , ".join(self.macro(name) for name in self.names)
        else:
            head = "Ar " + self.names[0] + (" ..." if self.many else "")
        return f".It {head}\n{sentences(self.text)}\n"

    def synopsis(self):
        if self.names[0].startswith("-"):
            return f".Op {self.macro(self.names[-1])}\n"
        argument = f"Ar {self.names[0]}" + (" ..." if self.many else "")
        return f".{argument}\n" if self.required else f".Op {argument}\n"


class Help:
    """What 'PROGRAM COMMAND --help' prints."""

    def __init__(self, *words):
        self.words = words
        self.sections = {}
        self.examples = []
        self.takes_program = False
        head, _, body = output(*words, "--help").partition("Usage:")
        self.summary = " ".join(head.split())
        usage, *lines = body.split("\n")
        section = None
        for line in lines:
            title = re.fullmatch(r"(\w[\w ]*):", line)
            if title:
                section = title[1]
                if section in ("Example", "Examples", "Exit codes"):
                    continue
                self.sections[section] = []
            elif section in ("Example", "Examples"):
                if not line.strip():
                    section = None
                else:
                    self.examples.append(line.strip())
            elif section and line.startswith("  ") and section != "Exit codes":
                self.add_line(self.sections[section], line)
            elif section != "Exit codes" and line:
                section = None
                self.takes_program |= line.endswith("follow after --")
        self.entries = {name: [Entry(*pair) for pair in pairs]
                        for name, pairs in self.sections.items()}
        for entry in self.arguments():
            entry.required = f"[{entry.names[0]}" not in usage

    @staticmethod
    def add_line(pairs, line):
        if line.startswith("   "):
            pairs[-1][1] += " " + line.strip()
            return
        words, _, text = line.strip().partition("  ")
        pairs.append([words, text.strip()])

    def options(self):
        return [entry for entry in self.entries.get("Options", []) if "--help" not in entry.names]

    def arguments(self):
        return self.entries.get("Positionals", []) + self.entries.get("Arguments", [])

    def commands(self):
        """All entries that are neither options nor arguments; they may stand in groups."""
        return [entry for entries in self.entries.values() for entry in entries
                if entry not in self.arguments() and not entry.names[0].startswith("-")]

    def synopsis(self):
        text = f".Nm {' '.join(self.words)}\n"
        text += "".join(entry.synopsis() for entry in self.options() + self.arguments())
        text += ".Fl -\n.Ar program ...\n" if self.takes_program else ""
        return text + (".Ar command ...\n" if self.commands() else "")

    def items(self):
        entries = self.arguments() + self.options()
        if not entries:
            return ""
        return ".Bl -tag -width Ds\n" + "".join(entry.item() for entry in entries) + ".El\n"

    def below(self):
        """A subsection for each command below this one, and for those below it."""
        text = ""
        for command in self.commands():
            child = Help(*self.words, command.names[0])
            words = " ".join(child.words[1:])
            if not child.commands():
                text += f".Ss {words}\n{child.synopsis()}.Pp\n{sentences(child.summary)}.\n"
                text += child.items()
            text += child.below()
        return text


def part(page):
    path = PARTS / f"{page}.mdoc"
    description, _, after = (path.read_text() if path.exists() else "").partition('.\\" after\n')
    return description, after


def head(page, section, name, summary):
    summary = summary[0].lower() + summary[1:] if not summary.startswith("H.264") else summary
    return (f'.\\" SPDX-License-Identifier: Apache-2.0\n.\\" Made by docs/man/generate.py.\n'
            f".Dd {DATE}\n.Dt {page.upper()} {section}\n.Os NYXUS\n"
            f".Sh NAME\n.Nm {name}\n.Nd {summary.removesuffix('.')}\n")


def command_page(page, info, see_also, commands="", status=""):
    description, after = part(page)
    text = head(page, 1, page, info.summary)
    text += ".Sh SYNOPSIS\n" + info.synopsis()
    text += f".Sh DESCRIPTION\n{sentences(info.summary.removesuffix('.'))}.\n{description}"
    text += info.items() and ".Pp\nArguments and options:\n" + info.items()
    if len(info.words) > 1:
        text += ".Pp\nThe options of\n.Xr nyxus 1\nmay be given, too.\n"
    text += commands or info.below()
    text += after
    text += status
    if len(info.words) > 1:
        text += ".Sh EXIT STATUS\nThe codes are those of\n.Xr nyxus 1 .\n"
    if info.examples:
        text += ".Sh EXAMPLES\n" + literal(info.examples)
    links = " ,\n.Xr ".join(f"{name} {section}" for name, section in see_also)
    return text + f".Sh SEE ALSO\n.Xr {links}\n"


def camera_page():
    """nyxus-camera(5): the keys of a camera description."""
    description, after = part("nyxus-camera")
    text = head("nyxus-camera", 5, "nyxus-camera", "description of a simulated camera")
    text += ".Sh DESCRIPTION\n" + description
    keys = output("nyxus-sim", "describe").split("\n\nThe camera\n")[1]
    text += ".Ss The camera\n.Bl -tag -width Ds\n"
    for block in re.split(r"\n\s*\n", keys.strip("\n")):
        lines = [line.strip() for line in block.split("\n")]
        if lines[0].startswith("["):
            text += f".El\n.Ss The table {lines[0].strip('[]')}\n.Bl -tag -width Ds\n"
            continue
        key, _, kind = lines[0].partition(": ")
        kind = kind[0].upper() + kind[1:]
        text += f".It Ic {key}\n{sentences(kind)}.\n{sentences(' '.join(lines[1:]))}\n"
    return text + ".El\n" + after


def exit_status():
    """What 'nyxus explain' says of the exit codes."""
    text = ".Sh EXIT STATUS\n.Bl -tag -width 130\n"
    for entry in json.loads(output("nyxus", "explain", "--all", "--json")):
        if "exit_code" in entry:
            meaning = f"{entry['name'][0].upper()}{entry['name'][1:]}. {entry['meaning']}"
            text += f".It {entry['exit_code']}\n{sentences(meaning)}\n"
    return text + ".El\n"


def main():
    folder = Path(sys.argv[2])
    tool = Help("nyxus")
    names = [entry.names[0] for entry in tool.commands()]
    pages = {}
    listing = ".Sh COMMANDS\n.Bl -tag -width Ds\n"
    for entry in tool.commands():
        listing += f".It Xr nyxus-{entry.names[0]} 1\n{sentences(entry.text)}\n"
    listing += ".El\n"
    see_also = [("nyxus-sim", 1), ("nyxus", 3)]
    pages["nyxus.1"] = command_page("nyxus", tool, see_also, listing, exit_status())
    for name in names:
        page = f"nyxus-{name}"
        pages[f"{page}.1"] = command_page(page, Help("nyxus", name), [("nyxus", 1)])
    see_also = [("nyxus", 1), ("nyxus-camera", 5), ("nyxus-faults", 5)]
    pages["nyxus-sim.1"] = command_page("nyxus-sim", Help("nyxus-sim"), see_also)
    pages["nyxus-camera.5"] = camera_page()
    for file, text in pages.items():
        (folder / file).write_text(text)


main()
