#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Makes docs/vocabulary.md: what things are called in C++, in Python and in the tool's JSON.

    docs/vocabulary.py [--check]      --check: changes nothing; fails when the page is out of date, or
                                      when C++ and Python call something by different names

C++ is read from its headers, Python from its stub, JSON from its schema.
"""

import ast
import difflib
import json
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/vocabulary.md"
STUB = ROOT / "python/nyxus/_nyxus.pyi"
CLASSES = ["CameraInfo", "CameraEvent", "CameraWatch", "Camera", "Osd", "H264", "Stream", "Frame", "Control"]
# What one of the two has of necessity.
ONLY_CPP = {
    "CameraInfo": {"device"},
    "Camera": {"device", "open_blank", "assume_eeprom", "require_rom", "exchange_bytes", "use", "queue_depth",
               "narrow_queue_proven", "wide_queue_proven", "wide_path_fails", "narrow_echo", "wide_echo", "open",
               "wait_for_restart",  # which is Python's restart()
               "has_spi_flash", "rom_size"},  # of Python's Rom
    "Control": {"id"},
    "CameraWatch": {"begin", "end", "failure", "run"},
    "Stream": {"begin", "end", "failure", "start", "patience_ms"},
    "Frame": {"fourcc"},
}
ONLY_PYTHON = {
    "Camera": {"closed", "stream", "check_started", "fingerprint"},  # the latter: of the engine, of the C interface
    "Frame": {"format", "pixels"},
    "Osd": {"time"},
}
CPP_NAMES = {"NyControl": "Control"}
# Functions of C++ that take a camera first are methods in Python.
METHODS = re.compile(r"^inline [\w:<>, ]+? (\w+)\(Camera&? camera\b", re.M)


def cpp_members():
    """The public names of each class, in their order."""
    found = {name: [] for name in CLASSES}
    headers = sorted((ROOT / "include/nyxus/cpp").glob("*.hpp"))
    for path in headers + [ROOT / "include/nyxus/engine/camera.hpp", ROOT / "include/nyxus/streaming.h"]:
        text = path.read_text()
        for match in re.finditer(r"^(?:typedef )?(class|struct) (\w+)[^;{]*\{\n(.*?)^\}", text, re.M | re.S):
            names = found.get(CPP_NAMES.get(match[2], match[2]))
            if names is None:
                continue
            public = match[1] == "struct"
            for line in match[3].splitlines():
                if re.match(r"\w+:$", line):
                    public = line == "public:"
                member = re.match(r"    (?!return|using|explicit|friend|enum|struct|//|/\*| )"
                                  r"(?:[\w:<>,&*]+(?: |(?<=[*&])))+?(\w+)(?:\(|;| = |\[)", line)
                if public and member and member[1] not in names and member[1] != match[2] and "operator" not in line \
                        and not member[1].startswith("k"):
                    names.append(member[1])
        if path.parent.name == "cpp":
            found["Camera"] += [name for name in METHODS.findall(text) if name not in found["Camera"]]
    return found


def python_members():
    found = {name: [] for name in CLASSES}
    for path in [STUB] if STUB.exists() else sorted((ROOT / "python/nyxus").glob("*.py")):
        for node in ast.parse(path.read_text()).body:
            if not isinstance(node, ast.ClassDef) or node.name not in found:
                continue
            for item in node.body:
                name = getattr(item, "name", None) or getattr(getattr(item, "target", None), "id", "_")
                if not name.startswith("_") and name not in found[node.name]:
                    found[node.name].append(name)
    return found


def json_keys(schema):
    if isinstance(schema, dict):
        return set(schema.get("properties", {})).union(*map(json_keys, schema.values()))
    return set().union(*map(json_keys, schema)) if isinstance(schema, list) else set()


def reasons():
    """Their words, and the names of C++."""
    text = (ROOT / "include/nyxus/cpp/result.hpp").read_text()
    names = re.findall(r"^    (k\w+),", re.search(r"enum class Reason \{(.*?)\};", text, re.S)[1], re.M)
    words = re.findall(r'"([\w-]+)"', re.search(r"kTexts\[\] = \{(.*?)\};", text, re.S)[1])
    assert len(names) == len(words)
    return list(zip(words, names))


def subject(name):
    """set_flip() and show_time() are about what flip and shows_time are about."""
    return {"enable": "enabled", "show_time": "shows_time", "get_xu": "xu"}.get(name, name.removeprefix("set_"))


def quoted(names):
    return ", ".join(f"`{name}`" for name in names)


def differences(cpp, python):
    for name in CLASSES:
        ours, theirs = ({subject(word) for word in words[name]} for words in (cpp, python))
        for word in sorted(ours - theirs - {subject(w) for w in ONLY_CPP.get(name, ())}):
            yield f"{name}: Python lacks {word}, or calls it otherwise"
        for word in sorted(theirs - ours - ONLY_PYTHON.get(name, set())):
            yield f"{name}: C++ lacks {word}, or calls it otherwise"


def page(cpp, python):
    keys = json_keys(json.loads((ROOT / "tool/schema/nyxus.schema.json").read_text()))
    errors = ROOT / "python/nyxus/_errors.py"
    classes = set(re.findall(r"^class (\w+)", errors.read_text(), re.M))
    yield "# Vocabulary\n\n<!-- Made by docs/vocabulary.py -->\n"
    yield "What the same thing is called in C++, in Python and in the tool's JSON.\n"
    yield "## Reasons of failures\n\nThe word is that of `to_text(Reason)` and of batch events.\n"
    yield "| word | C++: `Reason::` | Python raises |\n|---|---|---|"
    for word, name in reasons():
        exception = {"other": "Error", "file": "FileError"}.get(word, name[1:])
        yield f"| {word} | `{name}` | {quoted([exception]) if exception in classes else ''} |"
    for name in CLASSES:
        words = list(dict.fromkeys(subject(word) for word in cpp[name] + python[name]))
        if not words:
            continue
        yield f"\n## {name}\n\n| C++ | Python | JSON |\n|---|---|---|"
        for word in words:
            ours, theirs = (quoted(w for w in list_ if subject(w) == word) for list_ in (cpp[name], python[name]))
            yield f"| {ours} | {theirs} | {quoted([word]) if word in keys else ''} |"


def main():
    cpp, python = cpp_members(), python_members()
    made = "\n".join(page(cpp, python)) + "\n"
    if sys.argv[1:] != ["--check"]:
        PAGE.write_text(made)
        return 0
    problems = list(differences(cpp, python)) if STUB.exists() else []
    if made != PAGE.read_text():
        problems += ["Out of date: run docs/vocabulary.py",
                     *difflib.unified_diff(PAGE.read_text().splitlines(), made.splitlines(), lineterm="", n=0)]
    print("\n".join(problems))
    return int(bool(problems))


if __name__ == "__main__":
    sys.exit(main())
