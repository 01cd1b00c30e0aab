"""Saves that are sent signals: each ends with its files and its record closed, and not torn."""

import contextlib
import os
import signal

import pytest

import ostrelscan
import saving
import scanset
import screen
import signalled
from signalled import SIGNALS, name

MIDDLE = 2000
COMPRESS = pytest.mark.parametrize("options", [(), ("-c",)], ids=["raw", "compressed"])


@pytest.fixture
def held(fault_loop, tmp_path):
    """Makes a save that waits for this block of a pool: (run, disk)."""
    @contextlib.contextmanager
    def start(pool, block, *options):
        with fault_loop(pool.path, tmp_path / "disk", f"pause={block}") as (device, disk), \
                signalled.running(saving.arguments(device, *options), tmp_path) as run:
            disk.wait_for_pause()
            signalled.wait_until_stuck(run.pid, run.terminal)
            yield run, disk
            disk.go_on()
    return start


@COMPRESS
@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_a_signal_ends_a_save_behind_a_block(held, sample, tmp_path, number, options):
    with held(sample, MIDDLE, *options) as (run, disk):
        run.send(number)
        disk.go_on()
        signalled.assert_ended(run.end(), number)
    files = signalled.assert_stopped_set(tmp_path, saving.expected(sample.path), before=MIDDLE + 64,
                                         compress=bool(options))
    assert len(files[0].records) > 100


# The superblock header, the first blocks, the end of a stretch that is read at once, the last one.
@pytest.mark.parametrize("block", [1, 64, 127, 4095])
def test_a_save_is_stopped_wherever_it_is(held, sample, tmp_path, block):
    with held(sample, block) as (run, disk):
        run.send(signal.SIGTERM)
        disk.go_on()
        signalled.assert_ended(run.end(), signal.SIGTERM)
    signalled.assert_stopped_set(tmp_path, saving.expected(sample.path), before=block + 1)


@COMPRESS
def test_a_later_file_alone_is_flagged_as_stopped(held, pool, tmp_path, options):
    crowded = pool(size="16M", internal=0.9)
    with held(crowded, 3800, *options) as (run, disk):
        run.send(signal.SIGINT)
        disk.go_on()
        signalled.assert_ended(run.end(), signal.SIGINT)
    files = signalled.assert_stopped_set(tmp_path, saving.expected(crowded.path), before=3900,
                                         compress=bool(options), files=2)
    assert len(files[0].records) == scanset.FULL_FILE_RECORDS and files[1].records


def test_the_summary_of_a_stopped_save_stands_in_its_record(held, sample, tmp_path):
    with held(sample, MIDDLE) as (run, disk):
        run.send(signal.SIGHUP)
        disk.go_on()
        ended = run.end()
    (file,) = scanset.read_set(tmp_path)
    count = len(file.records)
    body = ended.log_run.body
    summary = body[body.index("In RunDumpMain(exit)"):]
    assert summary[1].endswith(f" Dumped  {count:x}")
    assert summary[2:] == [
        "Done ", "", "Current Scan File History:",
        f"./{file.path.name}\t20017\t{file.header['crc']}\t2555\t{count}", "",
        "DumpScanHistory Done ",
        "util/ostrelscan/scanUI[497] Could not complete scan of pool - 20017",
        "util/ostrelscan/scanUI[506]Status is 4e31", "Note: SIGHUP asked this run to end",
        "deleting the UI_ScreenID object", body[-1]]
    assert ended.picture.rows[19].rstrip() == "Could not complete scan of pool - 20017"


def test_an_interrupt_by_its_key_ends_a_save(held, sample, tmp_path):
    with held(sample, MIDDLE) as (run, disk):
        run.terminal.send("\x03")
        signalled.wait_for_the_first(run.pid, run.terminal)
        disk.go_on()
        run.terminal.wait_exit(60)
        signalled.assert_ended(saving.outcome(run.terminal, tmp_path), signal.SIGINT)


@pytest.mark.parametrize("second", SIGNALS, ids=name)
@pytest.mark.parametrize("first", SIGNALS, ids=name)
def test_a_second_signal_ends_a_save_that_is_stuck(held, sample, tmp_path, first, second):
    with held(sample, MIDDLE, "--automatic") as (run, disk):
        run.send(first)
        run.kill_at_once(second)
        assert run.log.endswith("</ostrelscan>\n")
        before = (tmp_path / "T0000000.ZSB").read_bytes()
        disk.go_on()
        signalled.assert_ended_at_once(run.end(), second)
    assert (tmp_path / "T0000000.ZSB").read_bytes() == before
    assert scanset.parse_header(before)["closeTime"] == 0


def test_many_signals_at_once_end_a_save_cleanly(held, sample, tmp_path):
    with held(sample, MIDDLE) as (run, disk):
        with signalled.ending_at_once(run.pid, run.terminal):
            for _ in range(20):
                for number in SIGNALS:
                    run.kill(number)
        disk.go_on()
        ended = run.end()
    assert (ended.status, ended.restored, ended.text.strip()) == (1, True, "")
    assert ended.log_run.closed and len(signalled.notes(ended.log_run)) == 1


# What stops a save while it stands at the question, at the pause, before and behind the screen


def finished_save(loop, pool, folder):
    """A save that waits for its key."""
    stack = contextlib.ExitStack()
    device = stack.enter_context(loop(pool.path, read_only=True))
    run = stack.enter_context(signalled.running(saving.arguments(device), folder))
    run.terminal.wait_for("Press any key", 60)
    return stack, run


@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_at_the_pause_a_signal_is_the_key(loop, sample, tmp_path, number):
    stack, run = finished_save(loop, sample, tmp_path)
    with stack:
        run.kill(number)
        ended = run.end()
    assert (ended.status, ended.restored, ended.text.strip()) == (0, True, "")
    signalled.assert_record_closed(ended.log_run, number)
    saving.assert_saved(tmp_path, saving.expected(sample.path))


def test_at_the_pause_of_a_failed_save_the_run_ends_with_its_own_status(tmp_path):
    with signalled.running(saving.arguments("nowhere"), tmp_path) as run:
        run.terminal.wait_for("Press any key", 60)
        run.kill(signal.SIGTERM)
        ended = run.end()
    assert (ended.status, ended.restored) == (1, True)
    assert ended.text.strip() == saving.failed_line(1)
    signalled.assert_record_closed(ended.log_run, signal.SIGTERM)


@pytest.mark.parametrize("call", ["time", "newterm"])
@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_a_signal_before_the_screen_ends_the_run_without_a_pass(loop, sample, tmp_path, number,
                                                                call):
    with loop(sample.path, read_only=True) as device:
        run = saving.save(device, tmp_path, env=ostrelscan.preload(
            "libsignalat.so", SIGNAL_CALL=call, SIGNAL_NUMBER=str(int(number))))
    assert run.status == 1
    signalled.assert_record_closed(run.log_run, number)
    assert "In RunDumpMain(start)" not in run.log_run.lines
    assert not list(tmp_path.glob("*.ZSB"))


@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_a_signal_behind_the_screen_changes_nothing(loop, sample, tmp_path, number):
    with loop(sample.path, read_only=True) as device:
        run = saving.save(device, tmp_path, env=ostrelscan.preload(
            "libsignalat.so", SIGNAL_CALL="endwin", SIGNAL_NUMBER=str(int(number))))
    assert run.status == 0
    assert run.log_run.closed and signalled.notes(run.log_run) == []
    saving.assert_saved(tmp_path, saving.expected(sample.path))


# Signals that do what they did


def test_a_quit_gives_the_terminal_back_and_does_as_by_default(held, sample, tmp_path):
    with held(sample, MIDDLE) as (run, disk):
        run.kill_at_once(signal.SIGQUIT)
        disk.go_on()
        ended = run.end()
    assert (ended.status, ended.restored) == (128 + signal.SIGQUIT, True)
    assert not ended.log_run.closed and signalled.notes(ended.log_run) == []


def test_a_quit_at_the_pause_gives_the_terminal_back(loop, sample, tmp_path):
    stack, run = finished_save(loop, sample, tmp_path)
    with stack:
        run.kill(signal.SIGQUIT)
        ended = run.end()
    assert (ended.status, ended.restored) == (128 + signal.SIGQUIT, True)
    assert not ended.log_run.closed


def test_signals_that_were_ignored_at_the_start_stay_ignored(fault_loop, sample, tmp_path):
    argv = ["/bin/sh", "-c", "trap '' HUP INT QUIT TERM; exec \"$@\"", "sh", ostrelscan.tool(),
            "--automatic"]
    with fault_loop(sample.path, tmp_path / "disk", f"pause={MIDDLE}") as (device, disk), \
            screen.Terminal([*argv, *saving.arguments(device)], cwd=tmp_path) as terminal:
        disk.wait_for_pause()
        signalled.wait_until_stuck(terminal.child.pid, terminal)
        for number in [*SIGNALS, signal.SIGQUIT]:
            os.kill(terminal.child.pid, number)
        terminal.send("\x03")
        disk.go_on()
        assert terminal.wait_exit(60) == 0
    log = (tmp_path / ostrelscan.LOG_NAME).read_text(encoding="utf-8")
    assert signalled.notes(ostrelscan.split_log(log)[-1]) == []
    saving.assert_saved(tmp_path, saving.expected(sample.path))


@pytest.fixture
def handler_of_curses(tmp_path):
    """The library's handler leaves behind the error of its last call, which a sanitizer tells."""
    known = tmp_path / "known"
    known.write_text("signal:libncursesw\n", encoding="ascii")
    options = os.environ.get("TSAN_OPTIONS", "")
    return {"TSAN_OPTIONS": f"{options}:suppressions={known}".lstrip(":")}


def test_a_save_that_is_suspended_and_taken_up_again_goes_on(tmp_path, handler_of_curses):
    feed = saving.Feed(tmp_path / "feed")
    shell = 'set -m; "$@"; echo suspended; read line; fg >fg; echo $? >status'
    argv = ["/bin/sh", "-c", shell, "sh", ostrelscan.tool(),
            *saving.arguments(feed.path, "--validation-skip")]
    with screen.Terminal(argv, cwd=tmp_path, env=handler_of_curses) as terminal:
        feed.open()
        terminal.wait_for("Scanning 3 blocks", 30)
        terminal.send("\x1a")
        terminal.wait_for("suspended", 30)
        terminal.send("\n")
        terminal.wait_for("Scanning 3 blocks", 30)
        for _ in range(3):
            feed.block()
        feed.close()
        terminal.wait_for("Press any key", 60)
        terminal.send("x")
        assert terminal.wait_exit(60) == 0
    assert (tmp_path / "status").read_text(encoding="ascii") == "0\n"
    assert [number for number, _ in scanset.set_records(tmp_path)] == [0, 1, 2]


def test_the_operator_thread_alone_takes_the_terminals_signals(held, sample):
    with held(sample, MIDDLE) as (run, disk):
        (watch,) = signalled.watching_threads(run.pid)
        folder = f"/proc/{run.pid}/task"
        others = {int(task) for task in os.listdir(folder)} - {run.pid, watch}
        ours = {*SIGNALS, signal.SIGQUIT}
        terminals = {signal.SIGTSTP, signal.SIGWINCH}
        operator = signalled.signal_set(run.pid, "SigBlk", run.pid)
        assert ours <= operator and not terminals & operator
        assert others
        for task in others:
            assert ours | terminals <= signalled.signal_set(run.pid, "SigBlk", task)
        caught = signalled.signal_set(run.pid, "SigCgt")
        assert terminals <= caught and not ours & caught
        ignored = signalled.signal_set(run.pid, "SigIgn")
        assert {signal.SIGPIPE, signal.SIGXFSZ} <= ignored
        disk.go_on()
