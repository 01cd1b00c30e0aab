"""Runs of the tool that are killed in the middle, and what such a run must have left behind."""

import contextlib
import os
import pathlib
import random
import re
import signal
import subprocess

import ostrelscan
import restoring
import scanset

HANG = 300  # seconds that no run takes, however busy the machine


def moments(count, seed):
    """Random shares of a run, the same ones for the same seed."""
    chosen = random.Random(seed)
    return [chosen.random() for _ in range(count)]


def start(arguments, folder, **environment):
    """Starts a run without a terminal."""
    return subprocess.Popen(
        [ostrelscan.tool(), "--automatic", "--bypass-ostrel", *map(str, arguments)], cwd=folder,
        env={**os.environ, "TERM": "xterm-256color", **environment}, stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def work_of(process):
    """How many bytes a process has read and written so far; nothing once it has gone."""
    with contextlib.suppress(OSError, AttributeError):
        facts = pathlib.Path(f"/proc/{process.pid}/io").read_text(encoding="ascii")
        return sum(int(re.search(rf"{name}: (\d+)", facts)[1]) for name in ("rchar", "wchar"))
    return None


def whole_work(arguments, folder, **environment):
    """How many bytes an undisturbed run reads and writes, as far as can be seen."""
    seen = 0
    with start(arguments, folder, **environment) as process:
        while process.poll() is None:
            seen = max(seen, work_of(process) or 0)
    assert process.returncode == 0
    return seen


def kill_at(share, whole, arguments, folder, **environment):
    """Kills a run once it has done its share of the whole work; whether it came to that."""
    with start(arguments, folder, **environment) as process:
        while process.poll() is None:
            done = work_of(process)
            if done is not None and done >= share * whole:
                process.send_signal(signal.SIGKILL)
                break
    return process.returncode == -signal.SIGKILL


def assert_killed_set(folder, records, *, compress):
    """Every closed file of the set is whole; the open one reads as an empty file that was never closed,
    or as nothing at all; what is there are the first records of the pool."""
    names = sorted(path.name for path in folder.glob("[CT]00*.ZSB"))
    assert names == [scanset.file_name(number, compress=compress) for number in range(len(names))]
    saved = []
    for at, name in enumerate(names):
        path = folder / name
        if path.stat().st_size < scanset.HEADER_BYTES:
            assert path.stat().st_size == 0 and at == len(names) - 1
            continue
        file = scanset.read_file(path)
        if file.header["closeTime"] == 0:
            assert at == len(names) - 1, name
            assert_empty(file)
            continue
        assert file.problems == [], name
        saved += file.records
    assert saved == records[:len(saved)]
    return len(saved)


def assert_empty(file):
    """As the header of a new file says: no records, and nothing of how it was closed."""
    header = file.header
    assert (header["signature"], header["trailerSignature"]) == (b"SCAN", b"SCAN")
    assert (header["fileEof"], header["dataBytes"]) == (scanset.HEADER_BYTES, scanset.HEADER_BYTES)
    assert header["crc"] == 0xFFFFFFFF
    assert header["flags"] & ~(scanset.COMPRESSED | scanset.WITH_COMPRESSED) == scanset.BYPASSED


def restore_arguments(device):
    return ["--validation-skip", *restoring.arguments(device)]


def save_arguments(image, compress):
    return [*["-c"] * compress, "save", "data", image]
