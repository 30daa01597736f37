# SPDX-License-Identifier: Apache-2.0
"""Builds the native module against the installed libraries, which pkg-config finds. CMake builds it, too;
this is for pip: see docs/bindings.md for what has to be there."""

import shlex
import subprocess
from pathlib import Path

from setuptools import Extension, setup


def ask_pkg_config(*question: str) -> "list[str]":
    done = subprocess.run(["pkg-config", *question, "nyxus-engine"], check=True, stdout=subprocess.PIPE, text=True)
    return shlex.split(done.stdout)


here = Path(__file__).parent
[libraries] = ask_pkg_config("--variable=libdir")
setup(ext_modules=[Extension(
    "nyxus._nyxus",
    sources=sorted(str(source.relative_to(here)) for source in here.glob("src/*.cpp")),
    depends=sorted(str(header.relative_to(here)) for header in here.glob("src/*.h")),
    extra_compile_args=["-std=c++20", "-O2", "-g0", "-fvisibility=hidden", *ask_pkg_config("--cflags")],
    extra_link_args=[*ask_pkg_config("--libs"), f"-Wl,-rpath,{libraries}"],
    language="c++",
)])
