"""What the tests of restores share: records, target devices, and runs of the tool."""

import collections
import os
import pathlib
import re
import shutil

import pytest

import ostrelscan
import scanset

BLOCK = 4096
EMPTY = bytes(BLOCK)
FILLER = b"\xee" * BLOCK
SUPERBLOCK = b"SPB5" + bytes(BLOCK - 4)

SYSTEM_ERROR = 0x22BA5000
REFUSED = 20008


def records(numbers, magic=b"LEAF"):
    """A record for each block number, each with content of its own."""
    return [(number, (magic + number.to_bytes(8, "little")).ljust(BLOCK, bytes([number % 251])))
            for number in numbers]


def target_image(path, blocks):
    """An image full of what no set holds, but for a superblock header in block 1."""
    with open(path, "wb") as image:
        for number in range(blocks):
            image.write(SUPERBLOCK if number == 1 else FILLER)
    return pathlib.Path(path)


def read_block(path, number):
    with open(path, "rb") as device:
        device.seek(number * BLOCK)
        return device.read(BLOCK)


def make_folder(path):
    """A folder to run the tool in, with an empty folder `set` for the scan files in it."""
    folder = pathlib.Path(path)
    (folder / "set").mkdir(parents=True)
    return folder


def replace_set(folder, records, **how):
    """Writes the folder's `set` anew, with nothing left of the one before."""
    shutil.rmtree(folder / "set")
    (folder / "set").mkdir()
    return scanset.write_set(folder / "set", records, **how)


def arguments(device, *options, pool="POOL"):
    return ["--danger", "-P", "set", *options, "restore", pool, device]


def restore(folder, device, *options, pool="POOL", bypass=True, **how):
    """Restores the folder's `set` onto a device; `how` is for the runner."""
    options = ("--bypass-ostrel",) * bypass + options
    return ostrelscan.run(arguments(device, *options, pool=pool), folder, **how)


def restore_to_file(folder, *options, **how):
    """Restores onto a plain file `device` of the folder, which opening empties."""
    (folder / "device").write_bytes(b"")
    return restore(folder, folder / "device", "--validation-skip", *options, **how)


def without_leak_check():
    """For runs that are traced, which the search for leaks cannot share its trace with."""
    options = os.environ.get("ASAN_OPTIONS", "")
    return {"ASAN_OPTIONS": f"{options}:detect_leaks=0".lstrip(":")}


Call = collections.namedtuple("Call", "name path arguments")


def trace_command(output, calls, *options):
    """Runs what follows it with its system calls of these names written to `output`; where that
    cannot be had, the test is skipped."""
    if not shutil.which("strace"):
        pytest.skip("strace is not installed")
    return ["strace", "-f", "-qq", "-y", "-s", "0", "-e", f"trace={calls}", *options,
            "-o", str(output)]


def traced_calls(output):
    """The calls in a trace, each with the path of the descriptor or name it is about."""
    found = []
    for line in pathlib.Path(output).read_text(encoding="utf-8").splitlines():
        call = re.match(r"\d+\s+(\w+)\((.*)", line)
        if call:
            path = re.search(r'(?:^\d+<([^>]*)>|"([^"]*)")', call[2])
            found.append(Call(call[1], (path[1] or path[2]) if path else None, call[2]))
    return found


def lines_between(log_run, first, last):
    """The log's lines from the first that is `first` to the next that is `last`."""
    body = log_run.body
    start = body.index(first)
    return body[start:body.index(last, start) + 1]


def pass_lines(log_run):
    """What the restore pass itself logged."""
    return lines_between(log_run, "In RunRestoreMain(start)", "In RunRestoreMain(exit)")


def history(log_run):
    """(name, status, blocks expected, blocks read) of each scan file the run has opened."""
    rows = (line.split("\t") for line in log_run.body if line.count("\t") == 4)
    return [(pathlib.Path(name).name, int(status), int(total), int(current))
            for name, status, _, total, current in rows]
