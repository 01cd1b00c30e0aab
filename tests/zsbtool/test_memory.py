"""The memory that commands take, which must not grow with the set: here one of ten thousand files."""

import os
import subprocess
import sys
import time

import pytest

import loopdev
import ostrelscan
import scanset
import zsbtool

FILES = 10_000
JOBS = 2
LIMIT_KIB = (64 + 24 * JOBS) * 1024

if ostrelscan.sanitized():
    pytest.skip("a sanitizer takes memory of its own", allow_module_level=True)


@pytest.fixture(scope="module")
def large(tmp_path_factory):
    folder = tmp_path_factory.mktemp("large")
    for number in range(FILES):
        last = scanset.LAST_FILE if number == FILES - 1 else 0
        scanset.write_file(folder / scanset.file_name(number, compress=True),
                           [(number + 1, b"LEAF".ljust(scanset.BLOCK_BYTES, b"\0"))], compress=True,
                           fileNumber=number, flags=0x041 | last)
    return folder


# A process counts what its parent had when it came to be, so a small one stands between.
PEAK = """import resource, subprocess, sys
done = subprocess.run(sys.argv[1:], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True)
assert done.stdout
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)"""


def peak_kib(*arguments):
    """The largest memory of a run, which must end well and print something."""
    argv = [sys.executable, "-c", PEAK, zsbtool.program(), *map(str, arguments)]
    return int(subprocess.run(argv, capture_output=True, check=True).stdout)


@pytest.mark.parametrize("words", [
    ["check", "--json", "--jobs", JOBS],
    ["check", "--recursive", "--jobs", JOBS],
    ["info", "--json"],
    ["list", "--jobs", JOBS],
    ["list", "--records", "--json"],
], ids=lambda words: " ".join(map(str, words)))
def test_a_command_keeps_within_the_limit(large, words):
    assert peak_kib(*words, large) <= LIMIT_KIB


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
