# SPDX-License-Identifier: Apache-2.0
"""The pytest plugin as users meet it: a folder with tests, and a plain call. NYXUS_SIM names the program."""

import os
import pathlib
import signal
import subprocess
import sys
import textwrap
import time

import pytest

SETTING = "[pytest]\nnyxus_simulator = true\n"
PYTEST = [sys.executable, "-B", "-m", "pytest", "-p", "no:cacheprovider", "-p", "nyxus_simulator.pytest_plugin"]


class Suite:
    def __init__(self, folder, code, setting=SETTING):
        self.folder = folder
        self.temporary = folder / "tmp"  # which pytest has to pass over
        self.temporary.mkdir()
        (folder / "test_it.py").write_text(textwrap.dedent(code))
        (folder / "pytest.ini").write_text(setting)

    def start(self, *options, before=(), **variables):
        return subprocess.Popen([*before, *PYTEST, *options], cwd=self.folder, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True,
                                env={**os.environ, "TMPDIR": str(self.temporary), **variables})

    def run(self, *options, **keywords):
        process = self.start(*options, **keywords)
        said = process.communicate(timeout=100)[0]
        return process.returncode, said

    def left(self):
        """Folders of a bus, and processes that know this suite's."""
        environment = f"TMPDIR={self.temporary}\0".encode()
        processes = []
        for entry in pathlib.Path("/proc").glob("[0-9]*/environ"):
            try:
                if environment in entry.read_bytes():
                    processes.append(entry.parent.name)
            except OSError:
                pass  # it has gone, or is not ours
        return [*processes, *self.temporary.glob("umockdev*")]


@pytest.fixture
def suite(tmp_path_factory):
    def make(code, **keywords):
        return Suite(tmp_path_factory.mktemp("s"), code, **keywords)
    return make


CARELESS = """
    import os, signal
    import nyxus_simulator, pytest

    def test_forgets(bus):
        bus.plug("rowan-spi,serial=A1")
        bus.set_faults('[[fault]]\\nwhen = { transfer = [1] }\\ndo = "stall"')

    def test_finds_nothing_of_the_one_before(bus, camera):
        assert bus.faults == [] and camera.serial == "SIM1" and camera.state["plugged"]

    def test_writes_nonsense(bus, camera):
        with pytest.raises(nyxus_simulator.Error, match='did you mean "stall"'):
            camera.set_faults('[[fault]]\\nwhen = {}\\ndo = "stal"')
        with pytest.raises(nyxus_simulator.Error, match="did you mean 'rowan-spi'"):
            bus.plug("rowan-spj")

    @pytest.mark.nyxus_camera("hawthorn-eeprom,serial=E1")
    def test_has_the_camera_of_its_mark(bus, camera):
        assert (camera.serial, camera.state["model"]) == ("E1", "hawthorn-eeprom")
        before = bus.now_us
        bus.advance(3600)
        assert bus.now_us - before >= 3600_000_000
        camera.set_rom(b"\\x5A" * 5000, 100)
        assert camera.rom[100:5100] == b"\\x5A" * 5000

    def test_closes_all_descriptors_of_a_child(camera):
        child = os.fork()
        if child == 0:
            os.closerange(3, 4096)
            camera.unplug()
            os._exit(0)
        assert os.waitpid(child, 0)[1] == 0 and not camera.state["plugged"]
"""


def test_careless_tests_do_not_meet(suite):
    careless = suite(CARELESS)
    code, said = careless.run()
    assert "5 passed, 1 error" in said and "never happened" in said, said
    assert code == 1 and careless.left() == []


def test_two_at_once_do_not_meet(suite):
    code = """
        import time
        def test_alone(bus):
            for _ in range(20):
                camera = bus.plug("hawthorn-eeprom,serial=A1")
                assert camera.state["address"] and len(bus.faults) == 0
                camera.remove()
    """
    suites = [suite(code) for _ in range(3)]
    started = [made.start() for made in suites]
    for made, process in zip(suites, started):
        said = process.communicate(timeout=100)[0]
        assert "1 passed" in said and made.left() == [], said


@pytest.mark.parametrize("end, code", [("os.abort()", 128 + signal.SIGABRT), ("os._exit(7)", 7)])
def test_nothing_is_left_of_one_that_crashes(suite, end, code):
    crashing = suite(f"import os\ndef test_it(bus, camera):\n    {end}\n")
    assert crashing.run("-s")[0] == code
    assert crashing.left() == []


def test_the_tests_end_with_their_simulation(suite):
    hanging = suite("import time\ndef test_it(camera):\n    print('hangs', flush=True)\n    time.sleep(300)\n")
    process = hanging.start("-s")
    while "hangs" not in process.stdout.readline():
        assert process.poll() is None
    process.kill()
    process.wait()
    process.stdout.close()
    for _ in range(100):
        if not any(isinstance(one, str) for one in hanging.left()):
            break
        time.sleep(0.1)
    assert not any(isinstance(one, str) for one in hanging.left())
    subprocess.run([os.environ["NYXUS_SIM"], "run", "--", "true"], check=True,
                   env={**os.environ, "TMPDIR": str(hanging.temporary)})
    assert hanging.left() == [], "the next one removes the folder"


TEST = "def test_it(camera):\n    assert camera.state['plugged']\n"


@pytest.mark.parametrize("setting, keywords, said", [
    ("[pytest]\n", {}, "Set 'nyxus_simulator = true'"),
    ("[pytest]\n", {"before": [os.environ["NYXUS_SIM"], "run", "--"]}, "is not for tests"),
    (SETTING, {"NYXUS_SIM": "/nonexistent"}, "there is no /nonexistent"),
    (SETTING + "nyxus_simulator_speed = slow\n", {}, "is fast or real, not 'slow'"),
])
def test_what_is_missing_is_said(suite, setting, keywords, said):
    code, output = suite(TEST, setting=setting).run(**keywords)
    assert code != 0 and said in output, output


@pytest.mark.parametrize("setting, options, keywords", [
    ("[pytest]\n", ["--nyxus-simulator"], {}),
    ("[pytest]\n", [], {"before": [os.environ["NYXUS_SIM"], "run", "--test-bus", "--"]}),
    (SETTING + "nyxus_simulator_speed = real\n", [], {}),
])
def test_each_way_in_works(suite, setting, options, keywords):
    code, output = suite(TEST, setting=setting).run(*options, **keywords)
    assert code == 0 and "1 passed" in output, output
