# SPDX-License-Identifier: Apache-2.0
"""The stub says what the module has: names by mypy's stubtest, arguments by what pybind11 tells of them."""

import ast
import re
import subprocess
import sys
from pathlib import Path

import pytest

import nyxus
from nyxus import _nyxus

STUB = Path(_nyxus.__file__).parent / "_nyxus.pyi"
# What any class of pybind11 has, and stubs cannot say.
OF_PYBIND11 = re.compile(r'metaclass differs$|\.__init__ is inconsistent, stub does not have \*args argument "args"$')


def test_the_stub_has_the_names_of_the_module(tmp_path):
    pytest.importorskip("mypy")
    config = tmp_path / "mypy.ini"
    config.write_text(f"[mypy]\ncache_dir = {tmp_path}\n")
    done = subprocess.run([sys.executable, "-m", "mypy.stubtest", "--concise", "--mypy-config-file", str(config),
                           "nyxus._nyxus"], capture_output=True, text=True, check=False,
                          cwd=STUB.parent.parent)
    said = [line for line in done.stdout.splitlines() if line and not OF_PYBIND11.search(line)
            and not line.startswith("Found ")]
    assert said == [] and "pybind" not in done.stderr
    assert done.stdout.count("metaclass differs") > 30, "stubtest has looked at the classes"


def declared():
    """Each function of the stub with its arguments, and which of them may be left out."""
    def arguments(function):
        names = [a.arg for a in function.args.args]
        optional = names[len(names) - len(function.args.defaults):]
        for name, default in zip(function.args.kwonlyargs, function.args.kw_defaults):
            names.append(name.arg)
            optional += [name.arg] if default is not None else []
        return names, optional
    tree = ast.parse(STUB.read_text())
    scopes = [("", tree)] + [(node.name, node) for node in tree.body if isinstance(node, ast.ClassDef)]
    for owner, scope in scopes:
        for node in scope.body:
            if (isinstance(node, ast.FunctionDef) and not node.decorator_list
                    and not (node.name.startswith("__") and node.name != "__init__")):
                yield owner, node.name, *arguments(node)


def told(owner, name):
    """The same as the docstring of the module's function tells it."""
    text = getattr(getattr(_nyxus, owner) if owner else _nyxus, name).__doc__.splitlines()[0]
    inside = text[text.index("(") + 1:text.rindex(") ->")]
    inside = re.sub(r"[\[(<][^\[\]()<>]*[\])>]", "", re.sub(r"[\[(<][^\[\]()<>]*[\])>]", "", inside))
    parts = [part.strip() for part in inside.split(",") if part.strip() not in ("", "*")]
    return [re.split(r"\W", part)[0] for part in parts], [re.split(r"\W", part)[0] for part in parts if "=" in part]


def test_the_stub_has_the_arguments_of_the_module():
    functions = list(declared())
    for owner, name, names, optional in functions:
        if names != ["self", "args"]:
            assert (names, optional) == told(owner, name), f"{owner}.{name}"
    assert len(functions) > 60


def test_the_stub_has_the_words_of_the_module():
    enums = [node for node in ast.parse(STUB.read_text()).body if isinstance(node, ast.ClassDef)
             and [ast.unparse(base) for base in node.bases] == ["enum.Enum"]]
    for node in enums:
        words = {line.targets[0].id: line.value.value for line in node.body if isinstance(line, ast.Assign)}
        assert words == {member.name: member.value for member in getattr(nyxus, node.name)}
    assert len(enums) > 10


def test_everything_public_is_documented_and_exported():
    public = {name for name in vars(_nyxus) if not name.startswith("_")}
    stubbed = {node.name for node in ast.parse(STUB.read_text()).body
               if isinstance(node, (ast.ClassDef, ast.FunctionDef))}
    assert public == stubbed and public <= set(nyxus.__all__)
    reasons = [kind for kind in vars(nyxus).values() if isinstance(kind, type) and issubclass(kind, nyxus.Error)]
    assert len(reasons) > 20 and all(kind.__doc__ for kind in reasons)
