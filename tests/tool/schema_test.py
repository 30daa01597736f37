#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What every command prints with --json fits its schema. Usage: schema_test.py NYXUS NYXUS-SIM SCHEMA"""
import json
import os
import subprocess
import sys
import tempfile

import jsonschema

# Command, and arguments in the order in which they are called on one camera, without and with effect.
ON_A_FLASH = (
    ("--version", ""), ("help", ""), ("help", "osd color"), ("list", ""), ("watch", "--wait 0"), ("info", ""), ("doctor", ""),
    ("image", "image.bin"), ("image", "text.txt"), ("upgrade", "image.bin --dry-run"), ("upgrade", "image.bin --reset"),
    ("upgrade", "image.bin --all"), ("upgrade", "image.bin --all --dry-run"), ("recover", "--force --dry-run"), ("recover", "--force"), ("dump", "dump.bin"),
    ("dump", "whole.bin --all"), ("compare", "image.bin"), ("rom map", ""), ("rom read", "part.bin --at 0x100 --size 16"),
    ("rom verify", "image.bin"), ("rom write", "part.bin --at 0x7F00 --dry-run"), ("rom write", "part.bin --at 0x7F00"),
    ("rom erase", "--region reserved --yes"), ("serial", ""), ("list", ""), ("info", ""), ("reset", ""),
    ("backups list", ""), ("backups show", "BACKUP"), ("backups verify", ""), ("backups export", "BACKUP copy.bin"),
    ("backups prune", "--keep 1"), ("manifest create", "--product camera --version 1 image.bin --output made.toml"),
    ("manifest check", "made.toml"), ("formats", ""), ("control list", ""), ("control get", "brightness"),
    ("control set", "brightness 3"), ("control save", "picture.toml"), ("control load", "picture.toml"),
    ("control load", "picture.toml --dry-run"), ("control load", "picture.toml --all"), ("snapshot", "shot.png"), ("stream", "--count 2"), ("flip", ""), ("flip", "on"),
    ("flip", "off --all"), ("mirror", "on --dry-run"), ("gain", ""), ("gain", "40"), ("osd enable", "on"), ("osd datetime", ""),
    ("osd datetime show", "on"), ("osd datetime set", "now"), ("osd string", "0"), ("osd string", "0 text"), ("osd window", ""),
    ("osd window", "0 2 3 10 4 1"), ("osd color", ""), ("osd color", "white black 123456"), ("osd transparent", ""),
    ("osd reset", ""), ("h264 rate-control", ""), ("h264 rate-control", "vbr"), ("h264 bitrate", ""),
    ("h264 bitrate", "3000000 1000000"), ("h264 qp", ""), ("h264 qp", "7 20 40"), ("h264 iframe-period", "30"),
    ("h264 format", ""), ("h264 next-frame", "idr"), ("h264 reset", ""), ("h264 version", ""), ("motion get", ""),
    ("motion set", "1 2 3 4"), ("motion poll", ""), ("motion poll", "--watch --count 2"), ("led", "0"), ("led", "0 8"), ("gpio", ""), ("gpio", "5"), ("gpio", "5 high"),
    ("i2c get", "0 2"), ("i2c set", "0 1"), ("i2c config", "0x60"), ("reg read", "0x20 2"), ("reg write", "0x20 1"),
    ("sensor read", "0"), ("sensor write", "0 1"), ("mcu read", "0"), ("mcu write", "0x80 1"), ("explain", "3"),
    ("erase", "--dry-run"), ("erase", "--yes"), ("info", ""))
ON_A_BOARD = (
    ("info", ""), ("sg reset", ""), ("sg reset-pin", ""), ("sg trigger", ""), ("sg mode snapshot", ""), ("sg mode stream", ""),
    ("sg power", "on"), ("sg led", "off --dry-run"), ("sg touch", ""), ("sg speed", ""), ("sg read", "0x2410 2"),
    ("sg write", "0x2410 part.bin"))
FAILING = (("info", "--camera nobody"), ("compare", "nothing.bin"), ("upgrade", "text.txt"))


def documents(text):
    """One document, or one a line."""
    try:
        return [json.loads(text)]
    except ValueError:
        return [json.loads(line) for line in text.splitlines()]


class Checker:
    def __init__(self, nyxus, schema):
        self.nyxus, self.schema, self.seen, self.mistakes = nyxus, schema, set(), 0

    def schema_of(self, command):
        return {**self.schema, **self.schema["commands"][command], "commands": {}}

    def run(self, command, arguments):
        said = subprocess.run([self.nyxus, *command.split(), *arguments, "--json"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True, timeout=60, check=False)
        return said.returncode, said.stdout, said.stderr

    def check(self, command, arguments):
        if "BACKUP" in arguments:
            newest = json.loads(self.run("backups list", [])[1])[0]["name"]
            arguments = [newest if word == "BACKUP" else word for word in arguments]
        code, out, err = self.run(command, arguments)
        self.seen.add(command)
        self.complain(command, arguments, err.strip() if code else "" if out else "nothing was printed")
        self.validate(command, arguments, out, self.schema_of(command))

    def check_failing(self, command, arguments):
        error = {**self.schema, "anyOf": [{"$ref": "#/$defs/error"}, {"$ref": "#/$defs/event"}], "commands": {}}
        code, out, _ = self.run(command, arguments)
        self.complain(command, arguments, "" if code and out else "is no failure that says so")
        self.validate(command, arguments, out, error)

    def validate(self, command, arguments, out, schema):
        validator = jsonschema.Draft202012Validator(schema)
        for document in documents(out):
            for error in validator.iter_errors(document):
                self.complain(command, arguments, f"{error.json_path}: {error.message}\n    in {json.dumps(document)}")

    def complain(self, command, arguments, what):
        if what:
            print(f"nyxus {command} {' '.join(arguments)}: {what}")
            self.mistakes += 1

    def check_that_all_were_called(self):
        def leaves(words):
            tree = json.loads(self.run("help", words)[1])
            names = [command["name"] for command in tree["commands"]]
            return [leaf for name in names for leaf in leaves([*words, name])] or [" ".join(words)]
        for command in set(leaves([])) - self.seen:
            self.complain(command, [], "was not called")
        for command in set(self.schema["commands"]) - self.seen:
            self.complain(command, [], "has a schema, but was not called")


def inside(nyxus, schema, board):
    with open(schema, encoding="utf-8") as file:
        checker = Checker(nyxus, json.load(file))
    jsonschema.Draft202012Validator.check_schema(checker.schema)
    if board:
        calls = ON_A_BOARD
        checker.seen.update(command for command, _ in ON_A_FLASH)
    else:
        calls = ON_A_FLASH
        checker.seen.update(command for command, _ in ON_A_BOARD)
        for command, arguments in FAILING:
            checker.check_failing(command, arguments.split())
    for command, arguments in calls:
        checker.check(command, arguments.split())
    checker.check_that_all_were_called()
    return 1 if checker.mistakes else 0


def main(nyxus, simulator, schema):
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        os.environ["XDG_STATE_HOME"] = folder
        with open("text.txt", "w", encoding="ascii") as file:
            file.write("no firmware")
        subprocess.run([simulator, "image", "--model", "rowan-spi", "--version", "0x0205", "image.bin"], check=True,
                       stdout=subprocess.DEVNULL)
        codes = [subprocess.run([simulator, "run", "--speed", "fast", "--camera", model, "--", sys.executable, __file__, nyxus, schema,
                                 kind], check=False).returncode for model, kind in (("rowan-spi", "flash"), ("fi2-board", "board"))]
        return max(codes)


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[3] in ("flash", "board"):
        sys.exit(inside(sys.argv[1], sys.argv[2], sys.argv[3] == "board"))
    sys.exit(main(*(os.path.abspath(argument) for argument in sys.argv[1:])))
