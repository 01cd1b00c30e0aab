"""Standard input: what is read of it and what is left, its end, and streams that are not there."""

import array
import contextlib
import fcntl
import os
import select
import subprocess
import termios

import pytest

import ostrelscan
import restoring
import saving
import scanset
from layout import PAUSE, shows_blocks

RECORDS = restoring.records(range(3))
BEFORE = b"what stood there before"
UNATTENDED = {**os.environ, "TERM": "xterm-256color"}


# Keys for the pause


@pytest.mark.parametrize("key", ["q", "\r", "\x1b", "\x1b[A"], ids=["q", "enter", "escape", "up"])
def test_a_key_typed_during_the_run_is_left_for_the_pause_and_ends_it(tmp_path, key):
    with saving.running(tmp_path) as (terminal, feed):
        terminal.wait_for(shows_blocks(0), timeout=30)
        terminal.send(key)
        for current in range(1, 4):
            feed.block()
            if current < 3:  # repainted with the key typed
                terminal.wait_for(shows_blocks(current), timeout=30)
        assert terminal.wait_exit(60) == 0
        assert PAUSE.strip().encode() in terminal.output


def test_no_key_no_end_of_the_pause(tmp_path):
    with saving.running(tmp_path) as (terminal, feed):
        for _ in range(3):
            feed.block()
        terminal.wait_for(PAUSE.strip(), timeout=60)
        assert terminal.pump(0.5), "the pause has ended by itself"
        terminal.send("x")
        assert terminal.wait_exit(60) == 0


# Input that belongs to somebody else


NAMES = ["ALPHA", "B", "GAMMA_GAMMA_GAMMA", "DELTA", "EPSILON", "Z"]
LOOP = ("while read pool; do \"$0\" --automatic --bypass-ostrel -P \"$pool\" save \"$pool\" \"$1\"; "
        "done < list")


@pytest.mark.parametrize("output", [">out", "", "2>err"], ids=["file", "terminal", "no stderr"])
def test_a_loop_over_pools_skips_none_and_cuts_no_name(pool, pool_device, tmp_path, output):
    made = pool(size="1M")
    (tmp_path / "list").write_text("".join(f"{name}\n" for name in NAMES), encoding="ascii")
    for name in NAMES:
        (tmp_path / name).mkdir()
    with pool_device(made) as device:
        done = saving.run_in_shell(f"{LOOP} {output}", tmp_path, device)
    assert done.status == 0
    assert [run.arguments[-2] for run in ostrelscan.split_log(done.log)] == NAMES
    for name in NAMES:
        saving.assert_saved(tmp_path / name, saving.expected(made.path))


REDIRECTS = ["</dev/null", "<&-", ">out", "</dev/null >out", "2>err", ">&-", "<&- >&-",
             "<&- >&- 2>&-"]


@pytest.mark.parametrize("redirect", REDIRECTS)
def test_an_automatic_save_needs_no_standard_streams(pool, pool_device, tmp_path, redirect):
    made = pool(size="1M")
    with pool_device(made) as device:
        run = saving.run_on_terminal(["--automatic", *saving.arguments(device)], tmp_path,
                                     redirect=redirect)
    assert (run.status, run.restored) == (0, True)
    saving.assert_saved(tmp_path, saving.expected(made.path))
    assert run.log_run.closed
    assert "\x1b" not in run.log
    if "2>err" in redirect:
        assert (tmp_path / "err").read_bytes() == b""


def test_an_automatic_save_does_not_wait_for_a_pipe_that_stays_open(pool, pool_device, tmp_path):
    made = pool(size="1M")
    reader, writer = os.pipe()
    try:
        with pool_device(made) as device:
            done = subprocess.run(
                [ostrelscan.tool(), "--automatic", *saving.arguments(device)], cwd=tmp_path,
                stdin=reader, capture_output=True, check=False, timeout=60,
                env={**os.environ, "TERM": "xterm"})
    finally:
        os.close(reader)
        os.close(writer)
    assert (done.returncode, done.stderr) == (0, b"")
    saving.assert_saved(tmp_path, saving.expected(made.path))


# The end of standard input


@pytest.mark.parametrize("redirect", ["</dev/null", "<&-", "</dev/null >out", "<&- >&- 2>&-"])
def test_the_pause_ends_with_the_end_of_standard_input(pool, pool_device, tmp_path, redirect):
    with pool_device(pool(size="1M")) as device:
        run = saving.run_on_terminal(saving.arguments(device), tmp_path, redirect=redirect)
    assert (run.status, run.restored) == (0, True)
    assert run.log_run.closed


# Output that goes elsewhere


@pytest.mark.parametrize("redirect, key", [(">out", "x"), (">out 2>err", "x\n"), (">&-", "x")])
def test_a_pause_that_nobody_sees_still_waits_for_its_key(pool, pool_device, tmp_path, redirect,
                                                          key):
    with pool_device(pool(size="1M")) as device, \
            saving.in_shell(saving.arguments(device), tmp_path, redirect=redirect) as terminal:
        log = tmp_path / ostrelscan.LOG_NAME
        terminal.wait_for(lambda _: log.exists() and "DumpScanHistory Done" in log.read_text(),
                          timeout=60)
        assert terminal.pump(0.5), "the pause has ended by itself"
        terminal.send(key)
        terminal.wait_exit(60)
        run = saving.outcome(terminal, tmp_path)
    assert (run.status, run.restored) == (0, True)


# Restores


@pytest.fixture
def folder(tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    (folder / "device").write_bytes(BEFORE)
    scanset.write_set(folder / "set", RECORDS, pool_name="DATA")
    return folder


def restore_arguments(*options):
    return ["--bypass-ostrel", "--validation-skip",
            *restoring.arguments("device", *options, pool="data")]


def expect_refused(folder, status, said):
    assert status == 1
    assert said.rstrip().endswith(saving.failed_line(restoring.REFUSED))
    log_run = ostrelscan.split_log((folder / ostrelscan.LOG_NAME).read_text(encoding="utf-8"))[-1]
    assert log_run.closed
    assert not [line for line in log_run.body if "RunRestoreMain" in line]
    assert (folder / "device").read_bytes() == BEFORE


@pytest.mark.parametrize("redirect", REDIRECTS)
def test_an_automatic_restore_needs_no_standard_streams(folder, redirect):
    run = saving.run_on_terminal(restore_arguments("--automatic"), folder, redirect=redirect)
    assert (run.status, run.restored) == (0, True)
    assert run.log_run.closed
    assert [restoring.read_block(folder / "device", number) for number, _ in RECORDS] == \
        [block for _, block in RECORDS]


@pytest.mark.parametrize("redirect", ["</dev/null", "<&-", "<&- 2>&-"])
def test_a_question_without_standard_input_is_answered_no(folder, redirect):
    run = saving.run_on_terminal(restore_arguments(), folder, redirect=redirect)
    expect_refused(folder, run.status, run.text)
    assert run.restored


@pytest.mark.parametrize("term", [None, "", "unknown", "no-such-terminal"])
def test_a_restore_without_a_screen_is_no_restore(folder, term):
    run = saving.run_on_terminal(restore_arguments(), folder, term=term)
    assert (run.status, run.restored) == (1, True)
    assert run.text.strip() == \
        "ostrelscan: the screen could not be obtained (see ostrelscan.log)."
    assert not run.log_run.closed
    assert (folder / "device").read_bytes() == BEFORE


@pytest.mark.parametrize("answer", ["n", "y"])
def test_a_question_on_a_dumb_terminal_is_answered_by_its_keys(folder, answer):
    with saving.in_shell(restore_arguments(), folder, term="dumb") as terminal:
        while terminal.bells == 0:  # the question cannot be read there, but beeps at a blank
            terminal.send(" ")
            assert terminal.pump(0.1), "the run has ended"
        terminal.send(f"{answer}x")
        terminal.wait_exit(60)
        run = saving.outcome(terminal, folder)
    assert run.restored
    if answer == "n":
        expect_refused(folder, run.status, run.text)
    else:
        assert run.status == 0
        assert restoring.read_block(folder / "device", 2) == RECORDS[2][1]


def waiting_bytes(descriptor):
    count = array.array("i", [0])
    fcntl.ioctl(descriptor, termios.FIONREAD, count)
    return count[0]


@pytest.mark.parametrize("answer", ["y", "n", "\x1b", "\0"], ids=["y", "n", "escape", "zero"])
def test_input_without_end_answers_no_question(folder, answer):
    with subprocess.Popen(["yes", answer] if answer != "\0" else ["cat", "/dev/zero"],
                          stdout=subprocess.PIPE) as program:
        while waiting_bytes(program.stdout) < 60_000:
            assert program.poll() is None
        done = subprocess.run([ostrelscan.tool(), *restore_arguments()], cwd=folder,
                              stdin=program.stdout, capture_output=True, timeout=60, check=False,
                              env=UNATTENDED)
        program.kill()
    expect_refused(folder, done.returncode, done.stdout.decode(errors="replace"))


def test_a_yes_for_everything_is_nobodys_answer_however_late_it_comes(folder):
    """Straight from the shell: the pipe may be empty when the question is asked."""
    done = subprocess.run(["sh", "-c", 'yes | "$@"', "sh", ostrelscan.tool(), *restore_arguments()],
                          cwd=folder, capture_output=True, timeout=60, check=False, env=UNATTENDED)
    expect_refused(folder, done.returncode, done.stdout.decode(errors="replace"))


@contextlib.contextmanager
def asked_through_a_pipe(folder):
    """A restore that asks its question of a pipe, which has no screen to show it on: (run, pipe).
    Blanks answer nothing, but a bell tells that one was read as an answer."""
    reader, writer = os.pipe()
    with subprocess.Popen([ostrelscan.tool(), *restore_arguments()], cwd=folder, stdin=reader,
                          stdout=subprocess.PIPE, env=UNATTENDED) as run:
        os.close(reader)
        shown = b""
        while b"\a" not in shown:
            os.write(writer, b" ")
            if select.select([run.stdout], [], [], 0.1)[0]:
                more = os.read(run.stdout.fileno(), 4096)
                assert more, "the run has ended"
                shown += more
        yield run, writer
        os.close(writer)


def test_a_flood_behind_the_answer_takes_the_answer_back(folder):
    with asked_through_a_pipe(folder) as (run, pipe):
        os.write(pipe, b"y\n" * 10_000)
        said = run.stdout.read()
    expect_refused(folder, run.returncode, said.decode(errors="replace"))


def test_one_answer_through_a_pipe_is_an_answer(folder):
    with asked_through_a_pipe(folder) as (run, pipe):
        os.write(pipe, b"yk")
        run.stdout.read()
    assert run.returncode == 0
    assert restoring.read_block(folder / "device", 2) == RECORDS[2][1]
