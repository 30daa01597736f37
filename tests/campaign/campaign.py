# SPDX-License-Identifier: Apache-2.0
"""A hostile trial of the nyxus tool: random cameras, operations and troubles. After each run the
ROM, the backups and every statement are compared with what is really there, and the unit is brought
back. The same seed makes the same runs, as far as processes let it."""

import argparse
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

MFI = 0x6000
RESERVED = 0x7F00
REACHED = 0x10000
SPI_MODELS = ("rowan-spi", "cedar-spi", "larch-spi", "fi2-spi")
EEPROM_MODELS = ("hawthorn-eeprom", "willow-eeprom")
LIMIT_S = 150
PATIENCE_S = 4  # where a worker is stopped for good
# All that may lie in the folder of the state, and in that of the run.
KEPT = re.compile(r"nyxus(/units(/[^/]+(/(\d{6}\.(rom|json)|journal\.jsonl|unit\.json))?)?)?")
OF_THE_RUN = re.compile(r"\d+\.rom|faults\.toml|pid|dump\.out|area\.bin|state")
OK, DIFFERENT, INTERRUPTED = 0, 8, 130


def toml(value):
    """As TOML writes it, on one line."""
    if isinstance(value, dict):
        return "{" + ", ".join(f"{key} = {toml(member)}" for key, member in value.items()) + "}"
    return json.dumps(value)  # texts, numbers and lists of numbers look alike


class Finding(Exception):
    """Something that the product promised is not so."""


class Programs:
    def __init__(self, folder, work):
        self.nyxus = str(folder / "nyxus")
        self.simulator = str(folder / "nyxus-sim")
        self.work = work
        self.images = {}

    def image(self, model, version, seed=1):
        """A firmware image; made once."""
        path = self.work / "images" / f"{model}-{version}-{seed}.bin"
        if path not in self.images:
            path.parent.mkdir(exist_ok=True)
            subprocess.run([self.simulator, "image", "--model", model, "--version", version, "--seed", str(seed), path],
                           check=True, capture_output=True)
            self.images[path] = path.read_bytes()
        return path, self.images[path]

    def mfi_image(self, serial):
        path = self.work / "images" / f"mfi-{serial}.bin"
        path.parent.mkdir(exist_ok=True)
        if path not in self.images:
            subprocess.run([self.simulator, "image", "--mfi", "--serial", serial, path], check=True, capture_output=True)
            self.images[path] = path.read_bytes()
        return self.images[path]


class Unit:
    """A simulated camera whose ROM is kept in a file between runs."""

    def __init__(self, folder, number, model, serial):
        self.model, self.serial, self.number = model, serial, number
        self.rom_file = folder / f"{number}.rom"
        self.is_spi = model in SPI_MODELS

    def option(self):
        return f"{self.model},serial={self.serial},bus={self.number},rom={self.rom_file}"

    def rom(self):
        return self.rom_file.read_bytes()[:REACHED]

    def put(self, address, data):
        rom = bytearray(self.rom_file.read_bytes())
        rom[address:address + len(data)] = data
        self.rom_file.write_bytes(rom)


class Outcome:
    def __init__(self, code, out, err):
        self.code, self.out, self.err = code, out, err
        self.lines = []
        for line in out.splitlines():
            try:
                self.lines.append(json.loads(line))
            except ValueError:
                pass

    def results(self):
        return [line for line in self.lines if isinstance(line, dict) and line.get("event") == "result"]


class Run:
    """One scenario in a folder of its own."""

    def __init__(self, programs, folder, seed):
        self.programs, self.folder, self.seed = programs, folder, seed
        self.dice = random.Random(seed)
        self.state = folder / "state"
        self.said = []

    # What it works with.

    def environment(self):
        return dict(os.environ, XDG_STATE_HOME=str(self.state), PATH=os.path.dirname(self.programs.nyxus) + ":" + os.environ["PATH"])

    @staticmethod
    def children(pid):
        """The processes that one has started."""
        found = []
        for stat in Path("/proc").glob("[0-9]*/stat"):
            try:
                if stat.read_text().rsplit(")", 1)[1].split()[1] == str(pid):
                    found.append(int(stat.parent.name))
            except (OSError, IndexError):
                pass
        return found

    def stop_a_worker(self, pid_file, delay_s):
        """Of a batch; it is never continued."""
        time.sleep(delay_s)
        try:
            workers = self.children(int(pid_file.read_text()))
            if workers:
                os.kill(self.dice.choice(sorted(workers)), signal.SIGSTOP)
        except (OSError, ValueError):
            pass

    def start(self, units, arguments, faults=None, limit_bytes=None):
        command = [self.programs.simulator, "run", "--speed", "fast"]
        for unit in units:
            command += ["--camera", unit.option()]
        if faults:
            file = self.folder / "faults.toml"
            file.write_text("fault = [" + ", ".join(map(toml, faults)) + "]\n")
            command += ["--faults", str(file)]
        pid_file = self.folder / "pid"
        pid_file.unlink(missing_ok=True)
        script = f'echo $$ >"{pid_file}"; exec "$0" "$@"'
        command += ["--", "sh", "-c", script, self.programs.nyxus, *map(str, arguments)]

        if limit_bytes is not None:  # the program alone, or the cameras' ROMs are not kept
            script = f'trap "" XFSZ; ulimit -f {limit_bytes // 512}; {script}'
            command[-(len(arguments) + 2)] = script
        return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=self.environment(),
                                cwd=self.folder, start_new_session=True), pid_file

    def finish(self, process, what):
        try:
            out, err = process.communicate(timeout=LIMIT_S)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            out, err = process.communicate()
            raise Finding(f"hang: {what} is still there after {LIMIT_S} s")
        outcome = Outcome(process.returncode, out.decode(errors="replace"), err.decode(errors="replace"))
        self.said.append(f"$ {what}   -> {outcome.code}\n{outcome.out}{outcome.err}")
        for stream in (out, err):
            if any(byte < 0x20 and byte not in b"\n\t" or byte == 0x7F for byte in stream):
                raise Finding(f"a control character in the output of {what}")
        return outcome

    def nyxus(self, units, *arguments):
        process, _ = self.start(units, arguments)
        return self.finish(process, "nyxus " + " ".join(map(str, arguments)))

    def signal_later(self, process, pid_file, number, delay_s):
        """To the tool itself."""
        end = time.monotonic() + 10
        while not (pid_file.exists() and pid_file.read_text().strip()) and time.monotonic() < end:
            if process.poll() is not None:
                return
            time.sleep(0.002)
        time.sleep(delay_s)
        try:
            os.kill(int(pid_file.read_text()), number)
        except (ProcessLookupError, ValueError):
            pass

    # Scenarios.

    def make_units(self):
        count = self.dice.choice((1, 1, 1, 2, 3))
        same = self.dice.random() < 0.4
        units = []
        for number in range(1, count + 1):
            model = self.dice.choice(SPI_MODELS if self.dice.random() < 0.75 else EEPROM_MODELS)
            units.append(Unit(self.folder, number, model, "SAME" if same else f"U{number}"))
        first = self.nyxus(units, "list", "--json")
        if first.code != OK:
            raise Finding("the cameras cannot be listed")
        for unit in units:
            unit.mfi = b""
            unit.reserved = b""
            if unit.is_spi and self.dice.random() < 0.6:
                unit.mfi = self.programs.mfi_image(unit.serial)
                unit.put(MFI, unit.mfi)
            if unit.is_spi and self.dice.random() < 0.6:
                unit.reserved = self.dice.randbytes(256)
                unit.put(RESERVED, unit.reserved)
        return units

    def random_fault(self):
        dice = self.dice
        where = dice.choice(("transfer", "rom", "chance"))
        if where == "transfer":
            when = {"transfer": dice.randint(40, 900)}
        elif where == "rom":
            start = dice.randrange(0, 0x8000, 256)
            when = {"rom_address": [start, start + dice.choice((0, 31, 255, 4095))]}
        else:
            when = {"request": dice.choice(("SET_CUR", "GET_CUR")), "probability": dice.choice((0.001, 0.005, 0.02))}
        kinds = ["stall", "io-error", "timeout", "short", "unplug", "power-cut", "late"]
        if where == "rom":
            kinds = ["lying-write", "lying-erase", "bit-flip", "stall", "power-cut", "stuck-busy"]
        fault = {"when": when, "do": dice.choice(kinds), "seed": dice.randint(0, 9999)}
        if fault["do"] != "bit-flip" and where != "transfer":
            fault["times"] = dice.choice((1, 1, 2, 5, 100))
        if fault["do"] == "short":
            fault["bytes"] = dice.randint(0, 7)
        if fault["do"] == "late":
            fault["ms"] = dice.choice((5, 600))
        if fault["do"] == "stuck-busy":
            fault["ms"] = dice.choice((100, 5000))
        if fault["do"] in ("unplug", "power-cut") and dice.random() < 0.7:
            fault["replug_ms"] = dice.choice((50, 800))
        return fault

    def operation(self, units):
        dice = self.dice
        unit = units[0]
        kind = dice.choice(("upgrade", "upgrade", "upgrade", "upgrade-all", "erase", "recover", "dump", "compare", "reset", "reserved"))
        image, data = self.programs.image(unit.model, "0x0300", dice.randint(1, 3))
        chosen = ["--camera", f"{unit.number}-1"] if len(units) > 1 else []
        if kind == "upgrade-all":
            if len({u.model for u in units}) > 1:
                kind = "upgrade"
            else:
                options = [o for o in ("--reset",) if dice.random() < 0.5]
                return kind, ["upgrade", image, "--all", "--json", *options], data
        if kind == "upgrade":
            options = [o for o, p in (("--reset", 0.5), ("--no-verify", 0.1), ("--no-backup", 0.15), ("--keep=whole", 0.1),
                                      ("--discard=mfi,reserved", 0.1)) if dice.random() < p]
            if "--discard=mfi,reserved" in options:
                unit.mfi = unit.reserved = b""  # nobody asks for them any more
            return kind, ["upgrade", image, "--json", *options, *chosen], data
        if kind == "reserved" and unit.is_spi:
            area = self.folder / "area.bin"
            area.write_bytes(dice.randbytes(64))
            unit.reserved = b""
            return kind, ["rom", "write", area, "--region=reserved", "--json", *chosen], data
        if kind == "erase":
            return kind, ["erase", "--yes", "--json", *chosen], data
        if kind == "recover":
            return kind, ["recover", "--force", "--json", *chosen], data
        if kind == "dump":
            return kind, ["dump", self.folder / "dump.out", "--json", *chosen], data
        if kind == "compare":
            return kind, ["compare", image, "--json", *chosen], data
        return "reset", ["reset", "--json", *chosen], data

    def with_trouble(self, units, arguments):
        """Runs it with something going wrong; returns the outcome and what went wrong."""
        dice = self.dice
        trouble = dice.choice(("none", "fault", "fault", "fault", "faults", "signal", "signals", "kill", "stopped", "full",
                               "read-only"))
        if "--all" in arguments and dice.random() < 0.4:
            trouble = "worker"
            arguments = [*arguments, "--patience", PATIENCE_S]
        faults = [self.random_fault() for _ in range({"fault": 1, "faults": 3}.get(trouble, 0))]
        limit = dice.choice((0, 4096, 20480)) if trouble == "full" else None
        if trouble == "read-only":
            self.make_unwritable()
        process, pid_file = self.start(units, arguments, faults, limit)
        delay = dice.uniform(0, 0.5)
        if trouble in ("signal", "signals"):
            number = dice.choice((signal.SIGINT, signal.SIGTERM, signal.SIGHUP))
            self.signal_later(process, pid_file, number, delay)
            if trouble == "signals":
                time.sleep(dice.uniform(0, 0.1))
                self.signal_later(process, pid_file, number, 0)
        elif trouble == "worker":
            self.stop_a_worker(pid_file, 0.05 + delay)
        elif trouble == "kill":
            self.signal_later(process, pid_file, signal.SIGKILL, delay)
        elif trouble == "stopped":
            self.signal_later(process, pid_file, signal.SIGSTOP, delay)
            self.signal_later(process, pid_file, signal.SIGCONT, dice.uniform(0.1, 0.6))
        what = f"nyxus {' '.join(map(str, arguments))}   ({trouble} {json.dumps(faults) if faults else ''})"
        outcome = self.finish(process, what)
        if trouble == "read-only":
            self.make_writable()
        return outcome, trouble, faults

    def make_unwritable(self):
        """A file where the folder should be: that stops root as well."""
        if self.state.exists():
            self.state.rename(self.folder / "state.away")
        self.state.write_text("")

    def make_writable(self):
        self.state.unlink()
        if (self.folder / "state.away").exists():
            (self.folder / "state.away").rename(self.state)

    # What has to hold.

    def backups(self):
        """The contents of every backup that there is."""
        return [file.read_bytes() for file in self.state.rglob("*.rom*") if file.is_file()] if self.state.is_dir() else []

    def check_left_overs(self):
        for folder, files, allowed in ((self.folder, self.folder.glob("*"), OF_THE_RUN),
                                       (self.state, self.state.rglob("*"), KEPT)):
            for name in (str(file.relative_to(folder)) for file in files):
                if not allowed.fullmatch(name):
                    raise Finding(f"a file is left: {name}")

    def check_statement(self, unit, kind, result, before, image, arguments, liar):
        after = unit.rom()
        stated = result.get("rom")
        holds_image = after[:len(image)] == image
        if stated == "unchanged" and after != before:
            raise Finding("the ROM is said to be unchanged, but is not")
        if stated == "erased" and set(after) != {0xFF}:
            raise Finding("the ROM is said to be erased, but is not")
        if kind.startswith("upgrade"):
            if stated == "new" and not holds_image and not liar:
                raise Finding("the ROM is said to hold the image, but does not")
            if result.get("outcome") in ("upgraded", "up-to-date") and not liar:
                if "--no-verify" not in arguments and not holds_image:
                    raise Finding("success is told, but the ROM does not hold the image")
                self.check_kept(unit, len(image))
        if kind == "recover" and result.get("outcome") == "done" and not liar:
            self.check_kept(unit, 0)

    @staticmethod
    def check_kept(unit, covered):
        rom = unit.rom()
        for name, address, data in (("MFi image", MFI, unit.mfi), ("reserved area", RESERVED, unit.reserved)):
            if data and covered <= address and rom[address:address + len(data)] != data:
                raise Finding(f"the {name} is gone after a success")

    def check_backup(self, unit, kind, before, arguments):
        """What was in the ROM is still somewhere."""
        if unit.rom() == before or set(before) == {0xFF} or "--no-backup" in arguments:
            return
        if not any(backup[:len(before)] == before[:len(backup)] for backup in self.backups() if backup):
            raise Finding(f"{kind} changed the ROM, and nothing holds what was in it")

    def check_journal(self, units, befores, image):
        """Nothing says that a ROM is whole which is not."""
        area = self.folder / "area.bin"
        written = area.read_bytes() if area.exists() else b""
        for unit, before in zip(units, befores):
            after = unit.rom()
            with_area = before[:RESERVED] + written + before[RESERVED + len(written):]
            contents = [image, *(backup[:0x8000].rstrip(b"\xFF") for backup in self.backups())]
            whole = after in (before, with_area) or any(data and after[:len(data)] == data for data in contents)
            try:
                rom = json.loads(self.info(unit, units).out).get("rom", {})
            except ValueError:
                continue
            if rom.get("state") in ("verified", "started") and not whole:
                raise Finding("the journal says that a ROM is whole which is not")
            if rom.get("state") == "blank" and set(after[:0x8000]) != {0xFF}:
                raise Finding("the journal says that a ROM is blank which is not")
            if not whole and set(after[:0x8000]) != {0xFF} and rom.get("state", "none") == "none":
                raise Finding("nothing says that the ROM is incomplete")

    def info(self, unit, units):
        return self.nyxus(units, "info", "--json", "--camera", f"{unit.number}-1")

    def bring_back(self, units, dropped):
        """Each unit starts its firmware again, with what was its own."""
        for unit in units:
            chosen = ["--camera", f"{unit.number}-1"]
            ways = (["recover", "--reset", "--json", *chosen],
                    ["recover", "--force", "--reset", "--json", *chosen])
            image, _ = self.programs.image(unit.model, "0x0400")
            eeprom = [] if unit.is_spi else ["--eeprom", "32"]
            last = ["upgrade", image, "--force", "--reset", "--json", *chosen]
            for way in (*ways, last, [*last, *eeprom]):
                if self.nyxus(units, *way).code == OK and self.runs(unit, units):
                    break
            else:
                raise Finding(f"the unit stays dead: {unit.option()}")
            if not dropped:
                self.check_kept(unit, 0)

    def runs(self, unit, units):
        try:
            return json.loads(self.info(unit, units).out).get("runs") == "external firmware"
        except ValueError:
            return False

    def run(self):
        units = self.make_units()
        if self.dice.random() < 0.5:  # a past: a backup from which the camera has started
            for unit in units:
                image, _ = self.programs.image(unit.model, "0x0200")
                if self.nyxus(units, "upgrade", image, "--reset", "--camera", f"{unit.number}-1").code != OK:
                    raise Finding("an upgrade of a well-behaved camera fails")
                self.check_kept(unit, 0)
        befores = [unit.rom() for unit in units]
        kind, arguments, image = self.operation(units)
        outcome, trouble, faults = self.with_trouble(units, arguments)
        liar = any(fault["do"] == "bit-flip" for fault in faults)
        killed = trouble == "kill" or outcome.code < 0 or outcome.code == 128 + signal.SIGKILL
        at_once = trouble in ("signal", "signals") and not outcome.out and not outcome.err
        untouched = all(unit.rom() == before for unit, before in zip(units, befores))
        if not (at_once and untouched):
            self.check_ending(kind, units, outcome, killed)
        for result in outcome.results():
            port = result.get("port", "1-1")
            concerned = [u for u in units if port.startswith(f"{u.number}-")] or units[:1]
            unit = concerned[0]
            self.check_statement(unit, kind, result, befores[unit.number - 1], image, arguments, liar)
        for unit, before in zip(units, befores):
            if not liar:
                self.check_backup(unit, kind, before, arguments)
        if kind == "dump" and (self.folder / "dump.out").exists():
            dumped = (self.folder / "dump.out").read_bytes()
            if not liar and (dumped != befores[0][:len(dumped)] or len(dumped) < 0x1000):
                raise Finding("a dump holds something else than the ROM")
        if kind == "compare" and outcome.code == OK and befores[0][:len(image)] != image and not liar:
            raise Finding("compare finds equal what is not")
        self.check_left_overs()
        if not liar:
            self.check_journal(units, befores, image)
        lost = "--no-backup" in arguments and any(u.rom() != b for u, b in zip(units, befores))
        self.bring_back(units, dropped=lost or liar)

    @staticmethod
    def check_ending(kind, units, outcome, killed):
        if outcome.code in (124, 125, 126, 127) or outcome.code >= 128 and outcome.code not in (INTERRUPTED, 129, 143) and not killed:
            raise Finding(f"the tool ended with {outcome.code}")
        if killed:
            return
        results = outcome.results()
        failed_early = outcome.lines and "error" in outcome.lines[-1]
        if not results and not failed_early:
            raise Finding("the tool ended without the line that programs read")
        if kind == "upgrade-all":
            if results and len({result.get("port") for result in results} - {None}) < len(units):
                raise Finding("a camera of the batch has no result")
        elif results and results[-1].get("exit_code") != outcome.code:
            raise Finding("the last line tells another exit code")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--programs", type=Path, required=True, help="folder of nyxus and nyxus-sim")
    parser.add_argument("--share", default="0/1", help="I/N: the runs I, I+N, I+2N and so on")
    parser.add_argument("--keep", action="store_true", help="keep the folders of runs with findings")
    parser.add_argument("runs", type=int)
    parser.add_argument("seed", type=int)
    options = parser.parse_args()
    findings = {}
    work = Path(tempfile.mkdtemp(prefix="nyxus-campaign."))
    programs = Programs(options.programs.resolve(), work)
    started = time.monotonic()
    first, step = map(int, options.share.split("/"))
    numbers = range(first, options.runs, step)
    for number in numbers:
        seed = options.seed * 100_000 + number
        folder = work / str(seed)
        folder.mkdir()
        run = Run(programs, folder, seed)
        try:
            run.run()
        except Finding as finding:
            findings[seed] = str(finding)
            print(f"run {number}: {finding}\n" + "".join(f"  | {line}\n" for said in run.said for line in said.splitlines()[-12:]),
                  flush=True)
            if options.keep:
                continue
        shutil.rmtree(folder, ignore_errors=True)
    if not (options.keep and findings):
        shutil.rmtree(work, ignore_errors=True)
    print(f"{len(numbers)} runs in {time.monotonic() - started:.0f} s, seed {options.seed}: {len(findings)} with findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
