# SPDX-License-Identifier: Apache-2.0
import hashlib
import os
import signal
import subprocess
import sys
import threading

import pytest

import nyxus
from conftest import simulator
from nyxus import EventKind, Phase, RomContents, UpgradeOptions


def phases_of(events):
    return [event.phase for event in events if event.kind is EventKind.BEGINS]


@pytest.mark.parametrize("serial, model, erases", [("A1", "rowan-spi", True),
                                                   ("E1", "hawthorn-eeprom", False)])
def test_an_upgrade_goes_through_its_phases_and_is_in_the_rom(serial, model, erases, firmware, rom_of):
    image = firmware(model, "0x0207")
    before = rom_of(serial)
    events = []
    with nyxus.open(serial) as camera:
        plan = camera.rom.plan(image)
        report = camera.rom.upgrade(image, on_event=events.append)
        assert camera.rom.compare(image).count == 0
        assert camera.rom.dump()[: len(image)] == image.data
        assert camera.rom.upgrade(image).up_to_date and camera.rom.plan(image).up_to_date
        assert camera.rom.history().rom is nyxus.RomRecord.VERIFIED
        camera.restart()
        camera.check_started()
        assert camera.version == "0x0207"
    assert phases_of(events) == [Phase.READING, Phase.READING_AGAIN, Phase.UNLOCKING] + [
        Phase.ERASING] * erases + [Phase.PROGRAMMING, Phase.LOCKING, Phase.VERIFYING]
    assert rom_of(serial)[: len(image)] == image.data
    assert report.rom is RomContents.NEW and report.bytes == len(image)
    backup = report.backup.read_bytes()
    assert backup == before[: len(backup)] and len(backup) >= 0x8000
    assert nyxus.Action.WRITE_HEADER in [step.action for step in plan.steps] and not plan.up_to_date


def test_events_can_be_iterated_over(camera, firmware):
    image = firmware()
    with nyxus.Task(camera.rom.upgrade, image, UpgradeOptions(always=True)) as task:
        phases = phases_of(list(task))
    assert phases[-1] is Phase.VERIFYING and list(task) == []
    assert task.result().rom is RomContents.NEW


def test_a_blank_camera_is_opened_upgraded_and_recovered(firmware):
    with nyxus.open("B1") as camera:
        assert camera.rom_state is nyxus.RomState.BLANK and camera.rom.has_spi_flash
        assert camera.flash.id == b"\xc2\x20\x11" and not camera.runs_external_firmware
        camera.rom.upgrade(firmware())
        camera.restart()
        assert camera.firmware_version == 0x0205
        assert camera.rom.erase().rom is RomContents.ERASED
        assert set(camera.rom.read(0, 0x1000, twice=True)) == {0xFF}
        camera.restart()
        assert camera.rom_state is nyxus.RomState.BLANK and camera.rom.history().needs_care
        backups = nyxus.Backups()
        latest = backups.latest(camera)
        assert latest.started is nyxus.Started.YES and latest.running.startswith("0x0205")
        assert latest.name in [backup.name for backup in backups.list(camera.info)]
        assert backups.read(latest)[:len(firmware())] == firmware().data
        assert camera.rom.recover().rom is RomContents.NEW
        camera.restart()
        camera.check_started()
        with pytest.raises(nyxus.NothingToRecover, match="although_healthy"):
            camera.rom.recover()


def test_a_rom_that_nothing_is_known_of_has_to_be_named(firmware, rom_of):
    image = firmware("hawthorn-eeprom")
    with nyxus.open("U1") as camera:
        assert camera.rom_state is nyxus.RomState.UNKNOWN
        for act in (lambda: camera.rom.upgrade(image), lambda: camera.rom.plan(image),
                    lambda: camera.rom.write(0, b"x"), lambda: camera.rom.erase()):
            with pytest.raises(nyxus.UnknownRom, match="eeprom_bytes="):
                act()
    with nyxus.open("U1", eeprom_bytes=0x8000) as camera:
        camera.rom.upgrade(image)
    assert rom_of("U1")[: len(image)] == image.data


def test_what_does_not_fit_is_refused_before_anything_is_written(firmware, rom_of, tmp_path):
    before = rom_of("E1")
    with nyxus.open("E1") as camera:
        for act, expected in [
                (lambda: camera.rom.upgrade(firmware("rowan-spi")), nyxus.WrongImage),
                (lambda: camera.rom.check_images(firmware("rowan-spi")), nyxus.WrongImage),
                (lambda: camera.rom.choose_images([]), nyxus.WrongImage),
                (lambda: camera.rom.erase(), nyxus.NotSupported),
                (lambda: camera.rom.read(0, 1 << 31), nyxus.NotSupported),
                (lambda: camera.rom.write(0x7FFF, b"xy"), nyxus.WrongImage),
                (lambda: camera.rom.recover(tmp_path / "none", True), nyxus.FileError),
                (lambda: nyxus.Firmware(b"\x12\xff"), nyxus.WrongImage),
                (lambda: nyxus.Firmware.load(tmp_path / "none"), nyxus.FileError)]:
            with pytest.raises(expected) as refused:
                act()
            report = refused.value.report
            assert report is None or report.rom is RomContents.UNCHANGED
    assert rom_of("E1") == before


class Broken(Exception):
    pass


def fail(_stop):
    raise Broken


def interrupt(_stop):
    os.kill(os.getpid(), signal.SIGINT)


def stop_elsewhere(stop):
    threading.Thread(target=stop.request).start()


@pytest.mark.parametrize("phase, rom", [(Phase.READING, {RomContents.UNCHANGED}),
                                        (Phase.PROGRAMMING, {RomContents.UNVERIFIED, RomContents.NEW})])
@pytest.mark.parametrize("act, expected", [(fail, Broken), (interrupt, KeyboardInterrupt),
                                           (stop_elsewhere, nyxus.Stopped)])
def test_what_breaks_into_an_upgrade_leaves_the_rom_whole(camera, firmware, rom_of, act, expected, phase, rom):
    version = "0x03%02x" % ((fail, interrupt, stop_elsewhere).index(act) * 2 + (phase is Phase.READING))
    image = firmware("rowan-spi", version)
    before = rom_of("A1")
    stop = nyxus.Stop()
    done = []

    def on_event(event):
        if event.kind is EventKind.BEGINS and event.phase is phase and not done:
            done.append(event)
            act(stop)
    with pytest.raises(expected) as broken:
        camera.rom.upgrade(image, on_event=on_event, stop=stop)
    assert done and broken.value.report.rom in rom and broken.value.report.stopped
    if phase is Phase.READING:
        assert rom_of("A1") == before
    else:
        assert rom_of("A1")[: len(image)] == image.data
    assert camera.flip in (True, False), "the camera is still of use"


CHILD = """
import sys, nyxus
def tell(event):
    if event.kind is nyxus.EventKind.BEGINS:
        print(event.phase.name, flush=True)
with nyxus.open("A1") as camera:
    try:
        camera.rom.upgrade(nyxus.Firmware.load(sys.argv[1]), on_event=tell)
    except KeyboardInterrupt as error:
        print("HOLDS", error.report.rom.value, flush=True)
        raise
"""


@pytest.mark.parametrize("phase, holds", [("READING", {"unchanged"}), ("PROGRAMMING", {"unverified", "new"})])
def test_ctrl_c_ends_a_program_at_a_safe_point(image_file, rom_of, phase, holds):
    image = image_file("rowan-spi", "0x0400" if phase == "READING" else "0x0401")
    before = rom_of("A1")
    with subprocess.Popen([sys.executable, "-c", CHILD, str(image)], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True) as program:
        for line in program.stdout:
            if line.startswith(phase):
                program.send_signal(signal.SIGINT)
                break
        rest = program.stdout.read()
        assert program.wait() == -signal.SIGINT
    held = next(line.split()[1] for line in rest.splitlines() if line.startswith("HOLDS"))
    assert held in holds
    after = rom_of("A1")
    wanted = image.read_bytes().rstrip(b"\xff")
    assert after == before if held == "unchanged" else after[: len(wanted)] == wanted


def test_a_callback_cannot_use_the_camera_that_is_worked_on(camera, firmware):
    with pytest.raises(nyxus.Busy, match="callback"):
        camera.rom.read(0, 4096, on_event=lambda event: camera.flip)


def test_another_thread_waits_until_the_work_is_done(camera):
    seen = []

    def on_event(event):
        if event.kind is EventKind.BEGINS:
            other.start()
        seen.append(event.done)
    other = threading.Thread(target=lambda: seen.append(camera.flip))
    camera.rom.read(0, 4096, on_event=on_event)
    other.join()
    assert isinstance(seen[-1], bool) and seen[-2] == 4096


def test_a_camera_that_goes_in_the_middle_is_reported_and_recovered(goner, firmware):
    before = goner.rom.dump()

    def on_event(event):
        if event.kind is EventKind.BEGINS and event.phase is Phase.PROGRAMMING and len(unplugged) == 0:
            unplugged.append(simulator("do", "unplug", "--camera", "G1"))
    unplugged = []
    with pytest.raises(nyxus.Incomplete, match="recover") as lost:
        goner.rom.upgrade(firmware(), UpgradeOptions(wait_s=0), on_event=on_event)
    assert isinstance(lost.value.__cause__, nyxus.CameraGone)
    assert lost.value.report.rom is RomContents.INCOMPLETE
    assert lost.value.report.backup.read_bytes()[: len(before)] == before
    assert goner.closed
    simulator("do", "replug", "--camera", "G1")
    with nyxus.open("G1") as camera:
        assert camera.rom.history().rom is nyxus.RomRecord.INCOMPLETE
        camera.rom.recover(lost.value.report.backup)
        camera.restart()
        assert camera.rom.dump() == before


def test_a_part_of_the_rom_is_written_and_the_rest_stays(camera, firmware):
    camera.rom.upgrade(firmware("rowan-spi", "0x0500"))
    before = camera.rom.dump()
    assert camera.rom.write(0x7F00, b"notes").rom is RomContents.NEW
    assert camera.rom.dump() == before[:0x7F00] + b"notes" + before[0x7F05:]
    assert camera.rom.read_reserved()[:5] == b"notes"


def test_the_customers_window_is_written_and_read_back(firmware, rom_of):
    with nyxus.open("F1") as camera:
        before, window = rom_of("F1"), camera.fingerprint
        report = window.write(0x2410, b"keys of a reader")
        assert report.rom is RomContents.NEW and report.backup.read_bytes()[:len(before)] == before
        assert window.read(0x2410, 16) == b"keys of a reader"
        assert rom_of("F1") == before[:0x2410] + b"keys of a reader" + before[0x2420:]
        for address, data in ((0x23FF, b"x"), (0x7FFF, b"xy"), (0x2400, b"")):
            with pytest.raises(nyxus.OutOfRange):
                window.write(address, data)
    with nyxus.open("A1") as camera, pytest.raises(nyxus.NotSupported):
        camera.fingerprint.write(0x2400, b"x")


def test_an_mfi_image_takes_a_serial_number_of_its_length_only(camera, firmware, tmp_path):
    path = tmp_path / "mfi.bin"
    simulator("image", "--mfi", "--serial", "VELKA_0001_LINK", path)
    mfi = nyxus.Mfi.load(path)
    for serial in ("", "VELKA_0002_LIN", "VELKA_0002_LINKS", "VELKA 0002 LINK", "VELKA_0002_LIN\u00e9"):
        with pytest.raises(nyxus.WrongImage):
            mfi.serial = serial
    assert mfi.data == path.read_bytes() and not mfi.is_for_one_camera
    mfi.serial = "VELKA_0002_LINK"
    assert nyxus.inspect_image(path).mfi.serial == "VELKA_0001_LINK"
    camera.rom.upgrade(nyxus.Images(firmware(), mfi))
    assert camera.rom.read(0x6000, len(mfi)) == mfi.data and b"VELKA_0002_LINK" in mfi.data
    camera.rom.upgrade(firmware(), UpgradeOptions(always=True, discard_mfi=True))
    assert camera.rom.read(0x6000, 4) == b"\xff" * 4, "or its next start would give it another serial number"


@pytest.fixture
def manifest(image_file, tmp_path):
    lines = ['product = "test"', 'version = "1.2"']
    for model in ("rowan-spi", "hawthorn-eeprom"):
        path = image_file(model, "0x0600")
        lines += ["[[firmware]]", f'chip = "{nyxus.Firmware.load(path).signature}"', f'image = "{path.name}"',
                  f'sha256 = "{hashlib.sha256(path.read_bytes()).hexdigest()}"', 'reports = "0x0600"']
    file = tmp_path / "product.toml"
    file.write_text("\n".join(lines))
    return file


def test_a_batch_gives_each_camera_the_image_for_its_chip(manifest, tmp_path):
    folders = nyxus.TrustFolders(tmp_path / "system", tmp_path / "user", tmp_path / "state")
    accepted = nyxus.load_manifest(manifest, nyxus.find_trust(folders))
    accepted.check_newest(folders)
    heard = []
    cameras = [nyxus.find_camera("A1"), nyxus.find_camera("E1"), "9-9"]
    reports = nyxus.run_batch(cameras, accepted.load_images(), nyxus.BatchOptions(restart=True),
                              on_event=lambda number, event: heard.append((number, event)))
    assert [type(report.error) for report in reports] == [type(None), type(None), nyxus.CameraGone]
    assert [report.version_after for report in reports] == ["0x0600", "0x0600", ""]
    ends = {number for number, event in heard if isinstance(event, nyxus.BatchReport)}
    assert ends == {0, 1, 2} and len(heard) > 20
    accepted.remember(folders)
    manifest.write_text(manifest.read_text().replace('"1.2"', '"1.1"'))
    with pytest.raises(nyxus.Downgrade):
        nyxus.load_manifest(manifest, nyxus.find_trust(folders)).check_newest(folders)


def test_a_batch_can_be_stopped_and_its_callback_may_raise(firmware):
    image = nyxus.ChipImages(firmware("rowan-spi", "0x0700"))
    cameras = [nyxus.find_camera(serial) for serial in ("A1", "B1", "G1")]
    options = nyxus.BatchOptions(at_once=1)
    stop = nyxus.Stop()
    reports = nyxus.run_batch(cameras, [image], options, stop=stop, on_event=lambda *_: stop.request())
    assert [report.started for report in reports] == [True, False, False]
    assert all(isinstance(report.error, nyxus.Stopped) for report in reports)

    def broken(_number, _event):
        raise Broken
    with pytest.raises(Broken) as raised:
        nyxus.run_batch(cameras, [image], options, on_event=broken)
    assert [report.started for report in raised.value.reports] == [True, False, False]
