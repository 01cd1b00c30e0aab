"""The memory that commands take, which must not grow with the set: here one of ten thousand files."""

import os
import subprocess
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


def peak_kib(*arguments):
    """The largest memory of a run, which must end well and print something."""
    argv = [str(zsbtool.program()), *map(str, arguments)]
    with subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE) as process:
        printed = len(process.stdout.read())
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    assert process.returncode == 0 and printed > 0
    return usage.ru_maxrss


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
