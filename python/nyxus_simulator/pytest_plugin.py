# SPDX-License-Identifier: Apache-2.0
"""pytest on simulated cameras: the fixtures `bus` and `camera`.

    # pyproject.toml
    [tool.pytest.ini_options]
    nyxus_simulator = true

    def test_an_unplugged_camera_is_told(camera):
        camera.unplug()
        assert nyxus.list_cameras() == []

With that setting (or the option --nyxus-simulator) a plain `pytest` starts itself anew under `nyxus-sim`,
before anything is collected: what stands below libusb has to be loaded before the interpreter. The program
is looked for where the environment variable NYXUS_SIM says, then on the PATH. Time is virtual unless
`nyxus_simulator_speed = real` is set. With pytest-xdist, each worker has a bus of its own.

@pytest.mark.nyxus_camera("hawthorn-eeprom,serial=E1") says which camera `camera` is.
"""

import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import sys
from typing import Any, Dict, Iterator, List, Optional

import pytest

from . import Bus, Camera, Error, bus_of_a_test, why_outside

_STARTER = "NYXUS_SIM_STARTER"  # set for the tests by the process that starts the simulation: its number
_VARIABLES = ("UMOCKDEV_DIR", "NYXUS_SIM_SOCKET", "NYXUS_SIM_SPEED")


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addini("nyxus_simulator", "run the tests on simulated cameras", type="bool", default=False)
    parser.addini("nyxus_simulator_speed", "time of the simulated cameras: fast (virtual) or real",
                  default="fast")
    parser.getgroup("nyxus").addoption("--nyxus-simulator", action="store_true",
                                       help="run the tests on simulated cameras")


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "nyxus_camera(description): which camera the fixture `camera` is")
    if not (config.getoption("nyxus_simulator") or config.getini("nyxus_simulator")):
        return
    speed = config.getini("nyxus_simulator_speed")
    if speed not in ("fast", "real"):
        raise pytest.UsageError(f"nyxus_simulator_speed is fast or real, not '{speed}'")
    if "NYXUS_SIM_SOCKET" not in os.environ:
        _start_anew(_simulation(speed))
    _end_with_simulation()
    if hasattr(config, "workerinput") and not why_outside():
        config.add_cleanup(_bus_of_worker(_simulation(speed)))


def pytest_ignore_collect(collection_path: pathlib.Path) -> Optional[bool]:
    """The folder of a bus has links in a circle, and TMPDIR may be in the folder of the tests."""
    return True if collection_path.name.startswith("umockdev.") else None


def _simulation(speed: str) -> List[str]:
    """The beginning of the command line that runs a program on a bus of its own."""
    program = os.environ.get("NYXUS_SIM") or shutil.which("nyxus-sim")
    if not program or not os.access(program, os.X_OK):
        raise pytest.UsageError("the tests want simulated cameras, but there is no "
                                f"{program or 'nyxus-sim on the PATH'}; install the package "
                                "nyxus-simulator, or set NYXUS_SIM to the program")
    return [program, "run", "--test-bus", "--speed", speed, "--"]


def _start_anew(simulation: List[str]) -> None:
    words = getattr(sys, "orig_argv", None) or [sys.executable, "-m", "pytest", *sys.argv[1:]]
    sys.stdout.flush()
    sys.stderr.flush()
    os.environ[_STARTER] = str(os.getpid())
    os.execv(simulation[0], [*simulation, sys.executable, *words[1:]])


def _end_with_simulation() -> None:
    """Nothing of tests that were started by us outlives the simulation."""
    if os.environ.get(_STARTER) == str(os.getppid()):
        death_signal = 1  # PR_SET_PDEATHSIG
        ctypes.CDLL(None).prctl(death_signal, signal.SIGKILL)


def _bus_of_worker(simulation: List[str]) -> Any:
    """Moves this process, a worker of pytest-xdist, to a bus of its own; returns what ends that.

    The simulation's program ends when nobody holds the other end of its standard input.
    """
    tell = f'printf "%s\\n" {" ".join(f"${{{name}}}" for name in _VARIABLES)}; exec cat'
    holder = subprocess.Popen([*simulation, "sh", "-c", tell], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              text=True, env=_outside())
    assert holder.stdin is not None and holder.stdout is not None
    for name in _VARIABLES:
        os.environ[name] = holder.stdout.readline().rstrip("\n")

    def end() -> None:
        assert holder.stdin is not None and holder.stdout is not None
        holder.stdin.close()
        holder.wait()
        holder.stdout.close()
    return end


def _outside() -> Dict[str, str]:
    """An environment without the simulation around us, in which the next one would see nothing else."""
    kept = {name: value for name, value in os.environ.items() if name not in _VARIABLES}
    ours = ("libnyxus-sim-client.so", "libumockdev-preload.so.0")
    preloaded = [name for name in kept.pop("LD_PRELOAD", "").split(":") if not name.endswith(ours)]
    if any(preloaded):
        kept["LD_PRELOAD"] = ":".join(preloaded)
    return kept


@pytest.fixture
def bus() -> Iterator[Bus]:
    """A simulated bus without cameras, for one test. A planned fault that never happened is an error."""
    reason = why_outside()
    if reason:
        pytest.fail(f"no simulated bus: {reason}. Set 'nyxus_simulator = true' in pytest's configuration, "
                    "call 'pytest --nyxus-simulator', or 'nyxus-sim run --test-bus --speed fast -- pytest'",
                    pytrace=False)
    try:
        with bus_of_a_test() as made:
            yield made
    except Error as error:
        pytest.fail(str(error), pytrace=False)


@pytest.fixture
def camera(bus: Bus, request: pytest.FixtureRequest) -> Camera:
    """A camera on the bus: rowan-spi, or what @pytest.mark.nyxus_camera says."""
    mark = request.node.get_closest_marker("nyxus_camera")
    return bus.plug(mark.args[0] if mark else "rowan-spi")
