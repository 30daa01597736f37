# SPDX-License-Identifier: Apache-2.0
"""Standard controls of the picture."""

import ctypes
import dataclasses
from typing import TYPE_CHECKING, Any, List

from ._errors import check, require
from ._library import CONTROLS, NYXUS, NyControl

if TYPE_CHECKING:
    from ._camera import Handle


@dataclasses.dataclass(frozen=True)
class Control:
    """A standard control, as the camera has it now; nyxus/streaming.h has the units."""

    name: str
    minimum: int
    maximum: int
    step: int
    default: int
    value: int


def list_controls(handle: "Handle") -> List[Control]:
    records = (NyControl * len(CONTROLS))()
    count = check(NYXUS.nyxus_list_controls(handle.pointer, records, len(records)))
    return [_control(record) for record in records[:count]]


def get_control(handle: "Handle", name: str) -> Control:
    record = NyControl()
    check(NYXUS.nyxus_get_control(handle.pointer, _number(name), ctypes.byref(record)))
    return _control(record)


def set_control(handle: "Handle", name: str, value: int) -> None:
    require(-(1 << 63) <= value < 1 << 63, "the value is out of range")
    check(NYXUS.nyxus_set_control(handle.pointer, _number(name), value))


def _number(name: str) -> int:
    require(name in CONTROLS, f"there is no standard control {name!r}")
    return CONTROLS.index(name)


def _control(record: Any) -> Control:
    return Control(record.name.decode(), record.minimum, record.maximum, record.step,
                   record.default_value, record.value)
