"""How the tool uses the system while it saves: counted calls, standard error, memory."""

import collections
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

import pytest

import loopdev
import ostrelscan
import saving
import scanset

CALLS = "read,pread64,readv,preadv,write,pwrite64,writev,pwritev,lseek"
CALL = re.compile(r"(\w+)\((\d+)<([^>]*)>.*?\) += +(-?\d+)")


class Traced:
    """The calls of a run: {(call, file): [results]}."""

    def __init__(self, prefix):
        self._results = collections.defaultdict(list)
        self.descriptors = collections.defaultdict(set)
        for path in prefix.parent.glob(f"{prefix.name}.*"):
            for line in path.read_text(encoding="utf-8").splitlines():
                if match := CALL.match(line):
                    self._results[match[1], match[3]].append(int(match[4]))
                    self.descriptors[match[1]].add(int(match[2]))

    def results(self, kind, file):
        """The results of reads, writes or lseeks of a file, whatever the call is named."""
        return [result for (call, name), results in self._results.items()
                if name == str(file) and kind in call for result in results]


@pytest.fixture
def traced_save(tmp_path):
    """Runs a save under strace and counts its calls."""
    if not shutil.which("strace"):
        pytest.skip("strace is not installed")

    def save(device, *options):
        prefix = tmp_path / "trace"
        before = ["strace", "-qq", "-ff", "-y", "-s", "0", "-e", f"trace={CALLS}", "-e",
                  "signal=none", "-o", prefix]
        # The leak check of a sanitizer cannot work under a tracer.
        leaks = os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
        run = saving.save(device, tmp_path, *options, before=before, timeout=300,
                          env={"ASAN_OPTIONS": leaks.lstrip(":")})
        assert (run.status, run.stderr) == (0, "")
        return Traced(prefix)
    return save


@pytest.mark.parametrize("options", [("--validation-skip",), (), ("-a",), ("-c",)],
                         ids=["unchecked", "raw", "all", "compressed"])
def test_each_block_is_read_once_in_large_pieces(pool, pool_device, traced_save, options):
    made = pool(size="16M")
    with pool_device(made) as device:
        calls = traced_save(device, *options)
        reads = calls.results("read", device)
        assert sum(reads) == made.size
        assert 0 < len(reads) <= 0.07 * made.blocks
        assert len(calls.results("lseek", device)) <= 0.01 * made.blocks
        assert calls.results("write", device) == []


def test_a_raw_record_is_one_write_and_no_seek(pool, pool_device, traced_save, tmp_path):
    made = pool(size="16M", internal=0.9)
    with pool_device(made) as device:
        calls = traced_save(device)
    for file in scanset.read_set(tmp_path):
        writes = calls.results("write", file.path)
        records = len(file.records)
        assert collections.Counter(writes) == {4104: records, 660: 2}
        assert writes[0] == writes[-1] == 660
        assert len(calls.results("lseek", file.path)) <= max(0.01 * records, 4)
        assert calls.results("read", file.path) == []


def test_compressed_bytes_are_written_in_whole_buffers(pool, pool_device, traced_save, tmp_path):
    made = pool(size="16M", internal=0.9)
    with pool_device(made) as device:
        calls = traced_save(device, "-c")
    files = scanset.read_set(tmp_path)
    assert len(files) == 2
    for file in files:
        first, *buffers, rest, last = calls.results("write", file.path)
        assert first == last == 660
        assert set(buffers) == {16384} and len(buffers) > 10
        assert 0 < rest <= 16384
        assert sum(buffers) + rest == len(file.data)
        assert len(calls.results("lseek", file.path)) <= max(0.01 * len(file.records), 4)


def test_nothing_is_written_to_standard_error(pool, pool_device, traced_save):
    with pool_device(pool(size="1M")) as device:
        calls = traced_save(device, "-P", ".")
    assert 2 not in calls.descriptors["write"] | calls.descriptors["writev"]
    assert 1 in calls.descriptors["write"]


# Memory


def peak_memory(device, folder, *options):
    """The most memory a save held, in KiB: it is asked while it waits for its key."""
    argv = [ostrelscan.tool(), *saving.arguments(device, *options)]
    with subprocess.Popen(argv, cwd=folder, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                          env={**os.environ, "TERM": "xterm"}) as process:
        try:
            log = pathlib.Path(folder) / ostrelscan.LOG_NAME
            until = time.monotonic() + 300
            while not log.exists() or "DumpScanHistory Done" not in log.read_text():
                assert process.poll() is None and time.monotonic() < until
                time.sleep(0.02)
            status = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="ascii")
            process.communicate(b"x", timeout=60)
        finally:
            if process.poll() is None:
                process.send_signal(signal.SIGKILL)
    assert process.returncode == 0
    return int(re.search(r"^VmHWM:\s+(\d+) kB$", status, re.MULTILINE)[1])


@pytest.mark.parametrize("options", [(), ("-c",)], ids=["raw", "compressed"])
def test_memory_does_not_grow_with_the_device(loop, tmp_path, options):
    peaks = {}
    for name, size in (("small", 64 << 20), ("large", 512 << 20)):
        (tmp_path / name).mkdir()
        image = saving.image_of(tmp_path / name / "image", size // loopdev.BLOCK_BYTES,
                                {1: b"SPB5"})
        with loop(image) as device:
            peaks[name] = peak_memory(device, tmp_path / name, *options)
    assert abs(peaks["large"] - peaks["small"]) < 2048, peaks
