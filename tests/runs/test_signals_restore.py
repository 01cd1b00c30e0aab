"""Restores that are sent signals: each ends behind a scan file, with its device stored."""

import contextlib
import signal

import pytest

import ostrelscan
import poolTypes
import restoring
import saving
import scanset
import signalled
from layout import CONSENT
from signalled import SIGNALS, name

PER_FILE = 100
BLOCKS = 600
RECORDS = restoring.records(range(2, 2 + 3 * PER_FILE))
FORMS = pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])


@pytest.fixture
def folder(tmp_path):
    return restoring.make_folder(tmp_path / "run")


@pytest.fixture
def held(fault_disk, loop, folder, tmp_path):
    """Makes a restore that waits for this scan file of its set: (run, disk, image). `faults` are of
    the calls that store its device."""
    @contextlib.contextmanager
    def start(number, *options, compress=False, faults=""):
        paths = scanset.write_set(folder / "set", RECORDS, per_file=PER_FILE, compress=compress)
        paths[number].rename(tmp_path / "held")
        image = restoring.target_image(tmp_path / "image", BLOCKS)
        with fault_disk(tmp_path / "held", tmp_path / "mnt", "pause=0") as disk, \
                loop(image) as device:
            paths[number].symlink_to(disk.disk)
            argv = ["--bypass-ostrel", *restoring.arguments(device, *options)]
            env = ostrelscan.preload("libclosefaults.so", FAULT_PATH=device, FAULT_CALLS=faults)
            with signalled.running(argv, folder, env=env if faults else None) as run:
                try:
                    yield run, disk, image
                finally:
                    disk.go_on()
    return start


def restored(image):
    """How many of the records stand on the image, in order, and nothing else."""
    found = dict(poolTypes.blocks(image))
    there = [found[number] == block for number, block in RECORDS]
    count = sum(there)
    assert there == [True] * count + [False] * (len(RECORDS) - count)
    assert all(found[number] == restoring.FILLER for number, _ in RECORDS[count:])
    return count


@FORMS
@pytest.mark.parametrize("held_file", [1, 2], ids=["middle", "last"])
@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_a_signal_ends_a_restore_behind_the_current_file(held, number, held_file, compress):
    with held(held_file, "--automatic", compress=compress) as (run, disk, image):
        disk.wait_for_pause()
        signalled.wait_until_stuck(run.pid, run.terminal)
        run.send(number)
        disk.go_on()
        ended = run.end()
        # The image behind the device holds what was stored, and not what is on its way.
        assert restored(image) == (held_file + 1) * PER_FILE
    signalled.assert_ended(ended, number)
    assert [row[1:] for row in restoring.history(ended.log_run)] == (
        [(0, PER_FILE, PER_FILE)] * held_file + [(signalled.STOPPED, PER_FILE, PER_FILE)])
    assert restoring.pass_lines(ended.log_run)[-2:] == [
        "util/ostrelscan/scanEngine[1041]ZRB EOF found", "In RunRestoreMain(exit)"]


def test_a_restore_that_a_signal_has_stopped_asks_for_no_key(held):
    with held(1) as (run, disk, _image):
        run.terminal.wait_for(CONSENT, 60)
        run.terminal.send("y")
        disk.wait_for_pause()
        signalled.wait_until_stuck(run.pid, run.terminal)
        run.send(signal.SIGTERM)
        disk.go_on()
        signalled.assert_ended(run.end(), signal.SIGTERM)


def test_a_stopped_restore_takes_every_step_that_stores_its_device(held):
    with held(1, "--automatic", faults="fflush=28,fsync=5,fclose=9") as (run, disk, _image):
        disk.wait_for_pause()
        signalled.wait_until_stuck(run.pid, run.terminal)
        run.send(signal.SIGTERM)
        disk.go_on()
        ended = run.end()
    signalled.assert_ended(ended, signal.SIGTERM)
    assert restoring.pass_lines(ended.log_run)[-4:-1] == [
        "Unable to flush data to device - 28", "Unable to sync data to device - 5",
        "Unable to close device - 9"]


def test_a_second_signal_leaves_a_restore_as_it_is(held):
    with held(1, "--automatic") as (run, disk, _image):
        disk.wait_for_pause()
        signalled.wait_until_stuck(run.pid, run.terminal)
        run.send(signal.SIGTERM)
        device = ostrelscan.split_log(run.log)[-1].arguments[-1]
        before = list(poolTypes.blocks(device))
        run.kill_at_once(signal.SIGINT)
        assert run.log.endswith("</ostrelscan>\n")
        disk.go_on()
        ended = run.end()
        assert list(poolTypes.blocks(device)) == before
    signalled.assert_ended_at_once(ended, signal.SIGINT)
    assert "In RunRestoreMain(exit)" not in ended.log_run.lines


# The questions


def assert_refused(run, number, device):
    assert (run.status, run.restored) == (1, True)
    assert signalled.PAUSE_LINE not in run.output
    assert run.text.strip() == saving.failed_line(restoring.REFUSED)
    signalled.assert_record_closed(run.log_run, number)
    assert "In RunRestoreMain(start)" not in run.log_run.lines
    assert device.read_bytes() == b"untouched"


@pytest.fixture
def asked(folder):
    """Makes a restore that asks its first question: (run, device)."""
    @contextlib.contextmanager
    def start(set_name="POOL"):
        scanset.write_set(folder / "set", RECORDS, pool_name=set_name)
        device = folder / "device"
        device.write_bytes(b"untouched")
        argv = ["--bypass-ostrel", "--validation-skip", *restoring.arguments("device")]
        with signalled.running(argv, folder) as run:
            run.terminal.wait_for(CONSENT, 60)
            yield run, device
    return start


@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_a_signal_answers_the_question_with_no(asked, number):
    with asked() as (run, device):
        run.kill(number)
        assert_refused(run.end(), number, device)


@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_a_signal_answers_the_question_about_another_pool_with_no(asked, number):
    with asked("OTHER") as (run, device):
        run.terminal.send("y")
        run.terminal.wait_for("are for a pool called OTHER", 60)
        run.kill(number)
        assert_refused(run.end(), number, device)


def test_a_quit_at_a_question_gives_the_terminal_back(asked):
    with asked() as (run, device):
        run.kill(signal.SIGQUIT)
        ended = run.end()
    assert (ended.status, ended.restored) == (128 + signal.SIGQUIT, True)
    assert not ended.log_run.closed and device.read_bytes() == b"untouched"


@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_a_signal_while_the_first_file_is_looked_at_ends_the_run_without_a_pass(held, number):
    with held(0, "--automatic") as (run, disk, image):
        disk.wait_for_pause()
        signalled.wait_until_stuck(run.pid, run.terminal)
        run.send(number)
        disk.go_on()
        ended = run.end()
        assert restored(image) == 0
    signalled.assert_ended(ended, number)
    assert "In RunRestoreMain(start)" not in ended.log_run.lines


def test_a_second_signal_ends_a_look_that_is_stuck(held):
    with held(0, "--automatic") as (run, disk, image):
        disk.wait_for_pause()
        signalled.wait_until_stuck(run.pid, run.terminal)
        run.send(signal.SIGTERM)
        run.kill_at_once(signal.SIGTERM)
        assert run.log.endswith("</ostrelscan>\n")
        disk.go_on()
        signalled.assert_ended_at_once(run.end(), signal.SIGTERM)
        assert restored(image) == 0


def test_a_signal_before_the_screen_restores_nothing(folder):
    scanset.write_set(folder / "set", RECORDS)
    run = restoring.restore_to_file(folder, env=ostrelscan.preload(
        "libsignalat.so", SIGNAL_CALL="newterm", SIGNAL_NUMBER=str(int(signal.SIGTERM))))
    assert run.status == 1
    signalled.assert_record_closed(run.log_run, signal.SIGTERM)
    assert "In RunRestoreMain(start)" not in run.log_run.lines
    assert (folder / "device").read_bytes() == b""
