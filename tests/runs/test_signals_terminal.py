"""Runs whose terminal goes away or takes no more, and writes that would end other programs."""

import errno
import os
import pathlib
import resource
import select
import signal
import subprocess

import pytest

import ostrelscan
import saving
import scanset
import screen
import signalled

MIDDLE = 2000
IGNORING = ["/bin/sh", "-c", "trap '' HUP; exec \"$@\"", "sh", ostrelscan.tool()]


def log_of(folder):
    path = pathlib.Path(folder) / ostrelscan.LOG_NAME
    return path.read_text(encoding="utf-8") if path.exists() else ""


def hang_up(terminal):
    """The terminal's other end goes away, as with a connection that breaks."""
    nothing = os.open(os.devnull, os.O_RDWR)
    os.dup2(nothing, terminal.child.child_fd)
    os.close(nothing)


def takes_output(pid):
    """Whether this program could write to its terminal."""
    device = os.open(f"/proc/{pid}/fd/1", os.O_WRONLY | os.O_NOCTTY)
    try:
        return bool(select.select([], [device], [], 0)[1])
    finally:
        os.close(device)


def exit_status(terminal):
    """Of a program whose terminal cannot tell its end any more."""
    signalled.eventually(lambda: not terminal.child.isalive())
    return terminal.child.exitstatus


def test_a_save_whose_terminal_goes_away_ends_closed(fault_loop, sample, tmp_path):
    with fault_loop(sample.path, tmp_path / "disk", f"pause={MIDDLE}") as (device, disk), \
            screen.Terminal([ostrelscan.tool(), *saving.arguments(device)],
                            cwd=tmp_path) as terminal:
        disk.wait_for_pause()
        pid = terminal.child.pid
        signalled.wait_until_stuck(pid, terminal)
        hang_up(terminal)
        signalled.wait_until_taken(pid)
        # A shell tells its jobs of the end that the kernel tells them of too.
        signalled.send(pid, signal.SIGHUP)
        disk.go_on()
        assert exit_status(terminal) == 1
    (run,) = ostrelscan.split_log(log_of(tmp_path))
    signalled.assert_record_closed(run, signal.SIGHUP)
    signalled.assert_stopped_set(tmp_path, saving.expected(sample.path), before=MIDDLE + 64)


@pytest.mark.parametrize("options", [("--automatic",), ()], ids=["automatic", "with a pause"])
def test_a_save_that_ignores_its_terminals_end_is_completed(fault_loop, sample, tmp_path, options):
    with fault_loop(sample.path, tmp_path / "disk", f"pause={MIDDLE}") as (device, disk), \
            screen.Terminal([*IGNORING, *options, *saving.arguments(device)],
                            cwd=tmp_path) as terminal:
        disk.wait_for_pause()
        hang_up(terminal)
        disk.go_on()
        assert exit_status(terminal) == 0
    (run,) = ostrelscan.split_log(log_of(tmp_path))
    assert run.closed and signalled.notes(run) == []
    saving.assert_saved(tmp_path, saving.expected(sample.path))


@pytest.mark.parametrize("command", [IGNORING, [ostrelscan.tool()]], ids=["ignoring", "told"])
def test_a_question_whose_terminal_goes_away_is_answered_with_no(tmp_path, command):
    scanset.write_set(tmp_path, [(2, b"LEAF".ljust(4096, b"x"))], pool_name="DATA")
    (tmp_path / "device").write_bytes(b"untouched")
    argv = [*command, "--bypass-ostrel", "--danger", "restore", "data", "device"]
    with screen.Terminal(argv, cwd=tmp_path) as terminal:
        terminal.wait_for("Do you wish to restore", 60)
        hang_up(terminal)
        assert exit_status(terminal) == 1
    (run,) = ostrelscan.split_log(log_of(tmp_path))
    assert run.closed and "In RunRestoreMain(start)" not in run.lines
    assert (tmp_path / "device").read_bytes() == b"untouched"


def test_a_terminal_that_takes_no_more_holds_up_no_signal(tmp_path):
    """The operator thread waits for the terminal for good. The pass ends all the same, and a second
    signal ends the run."""
    feed = saving.Feed(tmp_path / "feed")
    with screen.Terminal(
            [ostrelscan.tool(), *saving.arguments(feed.path, "--validation-skip")],
            cwd=tmp_path) as terminal:
        pid = terminal.child.pid
        feed.open()
        signalled.eventually(lambda: "Blocks in pool is 3" in log_of(tmp_path))
        signalled.fill_terminal(pid)
        feed.block()
        signalled.eventually(lambda: signalled.is_stuck_writing(pid))
        signalled.send(pid, signal.SIGTERM)
        feed.close()
        signalled.eventually(lambda: "In RunDumpMain(exit)" in log_of(tmp_path))
        (file,) = scanset.read_set(tmp_path)
        assert file.problems == [] and file.header["flags"] & scanset.STOPPED
        os.kill(pid, signal.SIGINT)
        assert exit_status(terminal) == 1
        terminal.pump(0.1)
        assert signalled.MAIN_SCREEN in terminal.output
    (run,) = ostrelscan.split_log(log_of(tmp_path))
    assert run.closed
    assert signalled.notes(run) == ["Note: SIGINT ended this run at once, after SIGTERM"]


def test_a_terminal_that_is_stopped_is_given_back_too(tmp_path):
    feed = saving.Feed(tmp_path / "feed")
    argv = saving.arguments(feed.path, "--validation-skip")
    with signalled.running(argv, tmp_path) as run:
        feed.open()
        run.terminal.wait_for("Scanning 3 blocks", 60)
        run.terminal.send("\x13")
        feed.block()  # which changes what stands on the screen
        signalled.eventually(lambda: signalled.is_stuck_writing(run.pid), run.terminal)
        run.send(signal.SIGTERM)
        run.kill(signal.SIGTERM)
        ended = run.end()
        feed.close()
    signalled.assert_ended_at_once(ended, signal.SIGTERM)
    assert signalled.MAIN_SCREEN in ended.output


def test_a_quit_at_the_pause_gives_a_stopped_terminal_back(tmp_path):
    with signalled.running(saving.arguments("nowhere"), tmp_path) as run:
        run.terminal.wait_for("Press any key", 60)
        run.terminal.send("\x13")
        signalled.eventually(lambda: not takes_output(run.pid))
        run.kill(signal.SIGQUIT)
        ended = run.end()
    assert (ended.status, ended.restored) == (128 + signal.SIGQUIT, True)
    assert signalled.MAIN_SCREEN in ended.output


def test_a_file_that_may_not_grow_fails_with_its_error(loop, pool, tmp_path):
    limit = 1 << 20
    argv = [ostrelscan.tool(), "--automatic"]
    with loop(pool(size="16M", internal=0.9).path, read_only=True) as device:
        run = subprocess.run(
            [*argv, *saving.arguments(device)], cwd=tmp_path, stdin=subprocess.DEVNULL,
            env={**os.environ, "TERM": "xterm"}, capture_output=True, text=True, check=False,
            timeout=60, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE,
                                                              (limit, limit)))
    assert run.returncode == 1
    assert run.stdout.endswith(
        saving.failed_line(saving.SYSTEM_ERROR + errno.EFBIG) + "\n")
    (record,) = ostrelscan.split_log(log_of(tmp_path))
    assert record.closed
    assert (tmp_path / "T0000000.ZSB").stat().st_size == limit


def test_a_save_that_nobody_watches_is_completed(loop, sample, tmp_path):
    reader, writer = os.pipe()
    os.close(reader)
    with loop(sample.path, read_only=True) as device:
        run = subprocess.run(
            [ostrelscan.tool(), "--automatic", *saving.arguments(device)], cwd=tmp_path,
            stdin=subprocess.DEVNULL, stdout=writer, env={**os.environ, "TERM": "xterm"},
            check=False, timeout=60)
    os.close(writer)
    assert run.returncode == 0
    (record,) = ostrelscan.split_log(log_of(tmp_path))
    assert record.closed and signalled.notes(record) == []
    saving.assert_saved(tmp_path, saving.expected(sample.path))
