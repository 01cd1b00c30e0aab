"""The memory that commands take, which must not grow with the set: here one of ten thousand files."""

import os
import pathlib
import subprocess
import sys
import tempfile
import time

import pytest

import loopdev
import ostrelscan
import scanset
import zsbtool

FILES = 10_000
JOBS = 2
LIMIT_KIB = (64 + 24 * JOBS) * 1024

pytestmark = pytest.mark.skipif(ostrelscan.sanitized(),
                                reason="a sanitizer takes memory of its own")


@pytest.fixture(scope="module")
def folder():
    """In memory, where there is such a place: ten thousand files that are made, and synced, take time."""
    place = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(dir=place) as made:
        yield pathlib.Path(made)


@pytest.fixture(scope="module")
def large(folder):
    made = folder / "set"
    made.mkdir()
    for number in range(FILES):
        last = scanset.LAST_FILE if number == FILES - 1 else 0
        scanset.write_file(made / scanset.file_name(number, compress=True),
                           [(number + 1, b"LEAF".ljust(scanset.BLOCK_BYTES, b"\0"))], compress=True,
                           fileNumber=number, flags=0x041 | last)
    return made


# A process counts what its parent had when it came to be, so a small one stands between.
PEAK = """import resource, subprocess, sys
done = subprocess.run(sys.argv[2:], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
assert done.returncode == int(sys.argv[1])
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)"""


def peak_kib(*arguments, status=0):
    """The largest memory of a run, which must end with this status."""
    argv = [sys.executable, "-c", PEAK, str(status), zsbtool.program(), *map(str, arguments)]
    return int(subprocess.run(argv, capture_output=True, check=True).stdout)


# What stands for the set and for an output is filled in.
COMMANDS = [
    "check --json --jobs 2 SET",
    "check --recursive --jobs 2 SET",
    "info --json SET",
    "list --jobs 2 SET",
    "list --records --json SET",
    "cat SET 1-10000",
    "find --json --jobs 2 SET 9999",
    "compare --json --jobs 2 SET SET",
    "image --jobs 2 SET -o OUT",
    "map --jobs 2 SET",
    "map --jobs 2 SET -o OUT",
    "merge --json --jobs 2 SET SET -o OUT",
    "prepare --json --jobs 2 SET OUT",
    "report --jobs 2 SET -o OUT",
    "unpack --json --jobs 2 SET OUT",
    "export --jobs 2 SET -o OUT",
]


@pytest.mark.parametrize("line", COMMANDS)
def test_a_command_keeps_within_the_limit(large, folder, line):
    places = {"SET": large, "OUT": folder / f"out of {line.split()[0]}"}
    assert peak_kib(*(places.get(word, word) for word in line.split())) <= LIMIT_KIB


def test_two_sets_of_full_files_are_compared_within_the_limit(folder):
    """Their files do not meet at their borders, so that each job works on several of them."""
    jobs = 6
    blocks = [(number, b"LEAF".ljust(scanset.BLOCK_BYTES, b"\0"))
              for number in range(jobs * scanset.FULL_FILE_RECORDS)]
    for name, first in (("one", 0), ("other", 700)):
        (folder / name).mkdir()
        scanset.write_set(folder / name, [(number + first, data) for number, data in blocks],
                          compress=True, level=1, poolBlocks=20_000)
    peak = peak_kib("compare", "--jobs", jobs, folder / "one", folder / "other", status=2)
    assert peak <= (64 + 24 * jobs) * 1024


def test_a_mount_keeps_within_the_limit_while_all_of_it_is_read(large, tmp_path):
    if not loopdev.have_fuse():
        pytest.skip(loopdev.have_fuse().why)
    argv = [zsbtool.program(), "mount", "--foreground", "--jobs", str(JOBS), large, tmp_path]
    with subprocess.Popen(argv, stdin=subprocess.DEVNULL) as process:
        try:
            until = time.monotonic() + 120
            while not os.listdir(tmp_path) and process.poll() is None:
                assert time.monotonic() < until
                time.sleep(0.05)
            with open(tmp_path / "pool.img", "rb") as image:
                assert sum(image.read(1 << 20).count(b"LEAF") for _ in range(64)) == FILES
            with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
                facts = dict(line.split(":", 1) for line in status)
        finally:
            process.terminate()
            process.wait(timeout=60)
    assert int(facts["VmHWM"].split()[0]) <= LIMIT_KIB
