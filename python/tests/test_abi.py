# SPDX-License-Identifier: Apache-2.0
"""The records, constants and functions of nyxus._library are those of the C headers."""

import ctypes
import inspect
import os
import subprocess

import pytest

from nyxus import _library as library

# What libusb declares as a struct only.
TAGGED = {"libusb_device_descriptor", "libusb_interface_descriptor", "libusb_interface",
          "libusb_config_descriptor"}
# These end before their C namesakes do.
PREFIXES = {"uvc_frame_t", "libusb_interface_descriptor", "libusb_config_descriptor"}
RECORDS = [record for _, record in inspect.getmembers(library, inspect.isclass)
           if issubclass(record, ctypes.Structure) and record is not ctypes.Structure]


def c_name(record):
    return ("struct " if record.__name__ in TAGGED else "") + record.__name__


def run_c(tmp_path, body):
    source = tmp_path / "abi.c"
    source.write_text(
        "#include <nyxus/nyxus.h>\n#include <stddef.h>\n#include <stdio.h>\n"
        + library.NYXUS_DECLARATIONS + library.LIBUSB_DECLARATIONS + library.LIBUVC_DECLARATIONS
        + "int main(void) {\n" + "\n".join(body) + "\nreturn 0; }\n")
    flags = subprocess.run(["pkg-config", "--cflags", "libusb-1.0", "libuvc"], check=True,
                           capture_output=True, text=True).stdout.split()
    program = tmp_path / "abi"
    # Declarations that contradict those of the headers do not compile. It is never run against the
    # library, so nothing is linked.
    subprocess.run([os.environ.get("CC", "cc"), "-std=gnu11", "-Wall", "-Werror",
                    "-I" + os.environ["NYXUS_INCLUDE"], *flags, str(source), "-o", str(program)],
                   check=True)
    return subprocess.run([str(program)], check=True, capture_output=True, text=True).stdout


def test_records_and_constants_are_those_of_the_headers(tmp_path):
    assert len(RECORDS) > 10
    body, expected = [], []
    for record in RECORDS:
        name = c_name(record)
        if record.__name__ not in PREFIXES:
            body.append(f'printf("{name} %zu\\n", sizeof({name}));')
            expected.append(f"{name} {ctypes.sizeof(record)}")
        for field, *_ in record._fields_:
            place = getattr(record, field)
            body.append(f'printf("{name}.{field} %zu %zu\\n", offsetof({name}, {field}), '
                        f"sizeof((({name}*)0)->{field}));")
            expected.append(f"{name}.{field} {place.offset} {place.size}")
    for name, value in library.CONSTANTS.items():
        body.append(f'printf("{name} %lld\\n", (long long)({name}));')
        expected.append(f"{name} {value}")
    assert run_c(tmp_path, body).splitlines() == expected


def test_a_declaration_that_is_not_the_headers_would_be_found(tmp_path, monkeypatch):
    wrong = library.NYXUS_DECLARATIONS.replace("XuSetFlip(NyDevice* pDevObj, int32_t bEnable)",
                                               "XuSetFlip(NyDevice* pDevObj, uint8_t bEnable)")
    assert wrong != library.NYXUS_DECLARATIONS
    monkeypatch.setattr(library, "NYXUS_DECLARATIONS", wrong)
    with pytest.raises(subprocess.CalledProcessError):
        run_c(tmp_path, [])


def test_every_declaration_was_understood():
    for declarations, loaded in ((library.NYXUS_DECLARATIONS, library.NYXUS),
                                 (library.LIBUSB_DECLARATIONS, library.LIBUSB),
                                 (library.LIBUVC_DECLARATIONS, library.LIBUVC)):
        lines = declarations.strip().splitlines()
        for line in lines:
            function = getattr(loaded, line.split("(")[0].split()[-1].lstrip("*"))
            assert len(function.argtypes) == line.count(",") + 1, line
