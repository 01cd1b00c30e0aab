"""What a save takes of the machine beside time: memory, bytes to its terminal, and the thread that
repaints it."""

import contextlib
import fcntl
import os
import pathlib
import pty
import select
import struct
import subprocess
import sys
import tempfile
import termios
import time

import pool_samples
import slow_cases
from case import Case

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "support"))

import loopdev  # noqa: E402
import saving  # noqa: E402

BEGIN = ("memory", "screen")    # how the names of these cases begin
LARGE_BLOCKS = 17 << 18
MEMORY = 8 << 20
REPAINT = 2000
CORE = 0.005
STEADY = slow_cases.Disk("100 MB/s", "bandwidth=100", 1024, True, None, 1280)
SECONDS = 6    # that a steady save is looked at, once it has begun
ROWS, COLUMNS = 25, 80


class Failed(RuntimeError):
    """A run that is looked at ended badly, or before its time."""


def started(tool, device, folder, terminal, output):
    environment = {**os.environ, "TERM": terminal}
    for size in ("LINES", "COLUMNS"):
        environment.pop(size, None)
    return subprocess.Popen([tool, "--bypass-ostrel", "--automatic", "save", "POOL", device],
                            cwd=folder, stdin=output, stdout=output, env=environment)


def peak_memory(tool, device, folder):
    """The most that a save had in memory, in bytes."""
    most = 0
    with tempfile.TemporaryDirectory(dir=folder) as outputs, open(os.devnull, "r+b") as nowhere:
        run = started(tool, device, outputs, "xterm-256color", nowhere)
        status = pathlib.Path(f"/proc/{run.pid}/status")
        while run.poll() is None:
            lines = dict(line.split(":", 1) for line in status.read_text(encoding="ascii").splitlines())
            most = max(most, int(lines.get("VmHWM", "0 kB").split()[0]) * 1024)
            time.sleep(0.02)
    if run.returncode != 0:
        raise Failed(f"the save of {device} ended with {run.returncode}")
    return most


@contextlib.contextmanager
def pseudo_terminal():
    """The two ends of a terminal of the usual size."""
    outside, inside = pty.openpty()
    fcntl.ioctl(inside, termios.TIOCSWINSZ, struct.pack("HHHH", ROWS, COLUMNS, 0, 0))
    try:
        yield outside, inside
    finally:
        os.close(outside)
        os.close(inside)


def read_for(outside, seconds):
    """How many bytes came within so many seconds."""
    count, until = 0, time.monotonic() + seconds
    while (left := until - time.monotonic()) > 0:
        if select.select([outside], [], [], left)[0]:
            count += len(os.read(outside, 1 << 16))
    return count


def seconds_of(thread):
    """The processor's time of a thread."""
    running = (thread / "schedstat").read_text(encoding="ascii").split()[0]
    return int(running) / 1e9


def repainting(tool, device, folder, terminal):
    """Bytes a second to the terminal, and the operator thread's share of a core."""
    with tempfile.TemporaryDirectory(dir=folder) as outputs, pseudo_terminal() as (outside, inside):
        run = started(tool, device, outputs, terminal, inside)
        try:
            read_for(outside, 1)
            operator = pathlib.Path(f"/proc/{run.pid}/task/{run.pid}")
            begin, before = time.monotonic(), seconds_of(operator)
            count = read_for(outside, SECONDS)
            taken, after = time.monotonic() - begin, seconds_of(operator)
            if run.poll() is not None:
                raise Failed(f"the save ended before {SECONDS + 1} seconds were over")
        finally:
            run.terminate()
            while run.poll() is None:
                read_for(outside, 0.05)
    return {"bytes a second": (count / taken, None), "core": ((after - before) / taken, None)}


@contextlib.contextmanager
def all_cases(tool, mkpool, say):
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(
            tempfile.TemporaryDirectory(dir=pool_samples.MEMORY)))
        image = pool_samples.make_image(folder, mkpool, "pool", pool_samples.SMALL, 0.05)
        small = stack.enter_context(loopdev.loop(image))
        large = stack.enter_context(loopdev.loop(saving.image_of(
            folder / "large.img", LARGE_BLOCKS, {1: b"SPB5"})))
        steady = stack.enter_context(slow_cases.attached(STEADY, image, folder))
        def memory(device):
            return lambda: {"memory": (peak_memory(tool, device, folder), None)}
        def screen(terminal):
            return lambda: repainting(tool, steady, folder, terminal)
        yield [
            Case("memory 1 GiB", goals={"memory": MEMORY}, take=memory(small)),
            Case("memory 17 GiB", goals={"memory": MEMORY}, take=memory(large)),
            *(Case(f"screen {terminal}", goals={"bytes a second": REPAINT, "core": CORE},
                   take=screen(terminal)) for terminal in ("xterm-256color", "vt100")),
        ]
