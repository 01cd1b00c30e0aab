"""Runs of the tool on a terminal that are sent signals, and what a run must leave behind then."""

import contextlib
import os
import pathlib
import platform
import signal
import time

import ostrelscan
import saving
import scanset

STOPPED = 20017
SIGNALS = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]
WATCH_CALL = {"x86_64": "128", "aarch64": "137"}  # rt_sigtimedwait
WRITE_CALL = {"x86_64": "1", "aarch64": "64"}
PAUSE_LINE = b"Press any key"
MAIN_SCREEN = b"\x1b[?1049l"  # what gives the terminal back


def name(number):
    return signal.Signals(number).name


def eventually(happened, terminal=None, seconds=30.0):
    """Waits, and takes meanwhile what the tool writes: a terminal that nobody reads holds it up."""
    until = time.monotonic() + seconds
    while not happened():
        assert time.monotonic() < until, happened
        if terminal:
            terminal.pump()
        time.sleep(0.01)


def _status(path):
    lines = path.read_text(encoding="ascii").splitlines()
    return dict(line.split(":\t", 1) for line in lines if ":\t" in line)


def signal_set(pid, field, task=None):
    """A set of signals from /proc, "SigBlk", "SigCgt" or "ShdPnd", of a process or one of its
    threads."""
    folder = pathlib.Path(f"/proc/{pid}")
    mask = int(_status((folder / f"task/{task}" if task else folder) / "status")[field], 16)
    return {number for number in range(1, 65) if mask >> (number - 1) & 1}


def watching_threads(pid):
    """The threads that wait for signals and for nothing else."""
    found = []
    with contextlib.suppress(OSError):  # a process or a thread that has just ended
        for task in sorted(pathlib.Path(f"/proc/{pid}/task").iterdir()):
            with contextlib.suppress(OSError):
                if (task / "syscall").read_text().split()[0] == WATCH_CALL[platform.machine()]:
                    found.append(int(task.name))
    return found


def wait_until_taken(pid, terminal=None):
    """Waits until the tool has taken every signal that it was sent, and acted on it."""
    eventually(lambda: not signal_set(pid, "ShdPnd") and watching_threads(pid), terminal)


def wait_for_the_first(pid, terminal=None):
    """Waits until the tool has taken a signal that a key makes, on its way through the terminal: the
    event descriptor has counted it then."""
    def counted():
        files = pathlib.Path(f"/proc/{pid}/fdinfo").glob("*")
        counts = [line.split()[1] for file in files
                  for line in file.read_text(encoding="ascii").splitlines()
                  if line.startswith("eventfd-count:")]
        return any(int(count, 16) for count in counts)
    eventually(counted, terminal)


def send(pid, number, terminal=None):
    """Sends a signal that the tool survives."""
    os.kill(pid, number)
    wait_until_taken(pid, terminal)


def wait_until_stuck(pid, terminal=None):
    """Waits until a thread of the tool waits for its disk, again and again: the disk may stand still
    for a block that was read ahead."""
    def waits():
        states = [path.read_text(encoding="ascii").rpartition(")")[2].split()[0]
                  for path in pathlib.Path(f"/proc/{pid}/task").glob("*/stat")]
        return "D" in states
    eventually(lambda: all(waits() for _ in range(10) if time.sleep(0.01) is None), terminal)


@contextlib.contextmanager
def ending_at_once(pid, terminal):
    """Waits behind the block until the thread that watches for signals has ended, and with it the
    process, but for threads that are stuck; the terminal is given back then."""
    (watch,) = watching_threads(pid)
    yield
    eventually(lambda: not pathlib.Path(f"/proc/{pid}/task/{watch}").exists(), terminal)
    eventually(lambda: MAIN_SCREEN in terminal.output, terminal)


def fill_terminal(pid):
    """Writes to a program's terminal until that takes no more, nor a moment later."""
    terminal = os.open(os.readlink(f"/proc/{pid}/fd/1"), os.O_WRONLY | os.O_NOCTTY | os.O_NONBLOCK)
    with contextlib.closing(os.fdopen(terminal, "wb", buffering=0)) as stream:
        full = 0
        while full < 10:
            full = 0 if stream.write(b"x" * 100) else full + 1
            time.sleep(0.01 if full else 0)


def is_stuck_writing(pid):
    """Whether the operator thread waits, again and again, for somebody to take what it writes."""
    def writes():
        call = pathlib.Path(f"/proc/{pid}/task/{pid}/syscall").read_text(encoding="ascii")
        return call.split()[0] == WRITE_CALL[platform.machine()]
    return all(writes() for _ in range(20) if time.sleep(0.01) is None)


class Run:
    """A run of the tool by a shell on a terminal; its log stands in `folder`."""

    def __init__(self, terminal, folder):
        self.terminal = terminal
        self.folder = pathlib.Path(folder)
        shell = terminal.child.pid
        children = pathlib.Path(f"/proc/{shell}/task/{shell}/children")
        eventually(lambda: self._watches(children.read_text(encoding="ascii").split()))

    def _watches(self, children):
        """Whether the shell's child is the tool by now: it has others before, for a moment."""
        self.pid = int(children[0]) if children else None
        return children and watching_threads(self.pid)

    @property
    def log(self):
        return (self.folder / ostrelscan.LOG_NAME).read_text(errors="replace")

    def send(self, number):
        send(self.pid, number, self.terminal)

    def kill(self, number):
        """Sends a signal that ends the process, or stops it."""
        os.kill(self.pid, number)

    def kill_at_once(self, number):
        with ending_at_once(self.pid, self.terminal):
            self.kill(number)

    def end(self, seconds=60.0):
        self.terminal.wait_exit(seconds)
        return saving.outcome(self.terminal, self.folder)


@contextlib.contextmanager
def running(argv, folder, **how):
    """A run that a shell has started on a terminal, and that watches for signals."""
    with saving.in_shell(argv, folder, **how) as terminal:
        yield Run(terminal, folder)


def notes(log_run):
    return [line for line in log_run.lines if line.startswith("Note: ")]


def assert_record_closed(log_run, number):
    """The record is complete, from the history to the last time stamp, and names the signal."""
    assert log_run.closed and len(log_run.times) == 2
    assert notes(log_run) == [f"Note: {name(number)} asked this run to end"]
    assert log_run.lines[-1].startswith("<CurrentTime ")


def assert_ended(run, number, status=STOPPED):
    """A run that ended by itself behind a signal: no key was asked for, and all is given back."""
    assert (run.status, run.restored) == (1, True)
    assert PAUSE_LINE not in run.output
    assert run.text.strip() == saving.failed_line(status)
    assert_record_closed(run.log_run, number)


def assert_ended_at_once(run, number):
    """A run that a second signal ended: the Note and the closing element are its last words."""
    assert (run.status, run.restored) == (1, True)
    assert run.text.strip() == ""
    assert run.log_run.closed and len(run.log_run.times) == 1
    (note,) = notes(run.log_run)
    assert note.startswith(f"Note: {name(number)} ended this run at once")
    assert run.log_run.lines[-1] == note


def assert_stopped_set(folder, records, *, before, compress=False, files=1):
    """A stopped save's files are whole and hold the first records of the pool, none from the block
    `before` on; only the last one is flagged, as stopped."""
    found = scanset.read_set(folder)
    assert [file.problems for file in found] == [[]] * files
    stopped = (0x041 if compress else 0) | scanset.STOPPED | scanset.BYPASSED
    flags = [file.header["flags"] for file in found]
    assert flags[-1] == stopped and all(not flag & scanset.STOPPED for flag in flags[:-1])
    saved = [record for file in found for record in file.records]
    assert saved == [record for record in records[:len(saved)] if record[0] < before]
    return found
