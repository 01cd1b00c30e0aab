"""Slow disks: what a save takes on them beside `dd`, which reads the same in the same round. Most of it is
waiting, which needs no processor."""

import contextlib
import ctypes
import dataclasses
import mmap
import pathlib
import sys
import tempfile
import threading

import measuring
import pool_samples
from case import Case

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "support"))

import loopdev  # noqa: E402
import saving  # noqa: E402
import scanset  # noqa: E402

BEGIN = ("slow",)    # how the names of these cases begin
READ_AHEAD_KIB = 128
LOOK_SECONDS = 0.05
CACHE = 64 << 20
HELPS, HELPS_NOT = 0.6, 1.02    # of dd's time, where many requests at once help and where not
PACKS = 1.05
READ = "dd if=$1 of=/dev/null bs=1M status=none"


@dataclasses.dataclass(frozen=True)
class Disk:
    """Sizes in MiB, as long as a run must be for its start and end to be little of it."""
    name: str
    pace: str
    size: int
    many: bool
    raw: float
    request_kib: int = 128    # what it takes as one request


DISKS = [
    Disk("0.1 ms", "latency=100", 1024, True, HELPS),
    Disk("1 ms", "latency=1000", 512, True, HELPS),
    Disk("10 ms", "latency=10000", 64, True, HELPS),
    Disk("0.1 ms", "latency=100", 1024, False, HELPS_NOT),
    Disk("1 ms", "latency=1000", 512, False, HELPS_NOT),
    Disk("10 ms", "latency=10000", 64, False, HELPS_NOT),
    Disk("100 MB/s", "bandwidth=100", 512, True, HELPS_NOT),
    Disk("100 MB/s", "bandwidth=100", 512, False, HELPS_NOT),
    Disk("1 GB/s", "bandwidth=1000", 1024, True, HELPS_NOT),
    Disk("1 GB/s", "bandwidth=1000", 1024, False, HELPS_NOT),
    Disk("10 ms, large", "latency=10000", 512, True, HELPS, 1280),
    Disk("10 ms, large", "latency=10000", 1024, False, HELPS_NOT, 1280),
]


class CacheWatch:
    """Looks now and then how much of a device stands in the page cache; `most` is in bytes."""

    def __init__(self, device, size):
        self.most = 0
        self._device = device
        self._size = size
        self._over = threading.Event()
        self._thread = threading.Thread(target=self._look)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *failure):
        self._over.set()
        self._thread.join()

    def _look(self):
        libc = ctypes.CDLL(None, use_errno=True)
        with open(self._device, "r+b") as file, mmap.mmap(file.fileno(), self._size) as view:
            start = ctypes.addressof(ctypes.c_char.from_buffer(view))
            resident = ctypes.create_string_buffer(self._size // mmap.PAGESIZE)
            while not self._over.wait(LOOK_SECONDS):
                if libc.mincore(ctypes.c_void_p(start), ctypes.c_size_t(self._size), resident) != 0:
                    raise OSError(ctypes.get_errno(), "mincore")
                self.most = max(self.most, resident.raw.count(b"\1") * mmap.PAGESIZE)


@contextlib.contextmanager
def queue_set(device, **values):
    """The device's queue with these values. It is the machine's, and another may have it next, so it
    gets its own back."""
    folder = pathlib.Path("/sys/block", pathlib.Path(device).name, "queue")
    before = {name: (folder / name).read_text(encoding="ascii") for name in values}
    try:
        for name, value in values.items():
            (folder / name).write_text(str(value), encoding="ascii")
        yield
    finally:
        for name, value in before.items():
            (folder / name).write_text(value, encoding="ascii")


@contextlib.contextmanager
def attached(disk, image, folder):
    """The device that is a slow disk."""
    way = "atonce" if disk.many else "queued"
    with (tempfile.TemporaryDirectory(dir=folder) as inside,
          loopdev.fault_disk(image, pathlib.Path(inside) / "disk", disk.pace, way) as fault,
          loopdev.loop(fault.disk, direct=True, size=disk.size << 20) as device,
          queue_set(device, max_sectors_kb=disk.request_kib, read_ahead_kb=READ_AHEAD_KIB)):
        yield device


def timed(command, device, outputs=None):
    """The wall time of a run that finds nothing of the device in the cache."""
    loopdev.drop_caches(device)
    return measuring.run(command, outputs)[0]["wall"]


def measure(disk, tool, image, records, folder):
    """{measure: (value, the anchor's or None)} of one round."""
    outputs = folder / "outputs"
    def save(*options):
        return ["env", "-C", outputs, "TERM=xterm-256color", tool, "--bypass-ostrel", "--automatic",
                *options, "save", "POOL", device]
    with attached(disk, image, folder) as device:
        read = timed(["sh", "-c", READ, "sh", device], device)
        both = timed(["sh", "-c", f"{READ} & gzip -6 <$2 >$3; wait", "sh", device, records,
                      outputs / "packed"], device)
        with CacheWatch(device, disk.size << 20) as cache:
            raw = timed(save(), device, outputs)
            packed = timed(save("-c"), device, outputs)
    return {"raw": (raw, read), "packed": (packed, both), "cache": (cache.most, None)}


def write_records(image, mebibytes, path):
    """What a save of so much of the pool stores."""
    limit = (mebibytes << 20) // loopdev.BLOCK_BYTES
    records = [(number, block) for number, block in saving.expected(image) if number < limit]
    path.write_bytes(scanset.pack_records(records))


def why_not():
    return pool_samples.why_not() or ("" if loopdev.have_fuse() else "FUSE")


@contextlib.contextmanager
def all_cases(tool, mkpool, say):
    with tempfile.TemporaryDirectory(dir=pool_samples.MEMORY) as name:
        folder = pathlib.Path(name)
        (folder / "outputs").mkdir()
        image = pool_samples.make_image(folder, mkpool, "slow", pool_samples.SMALL, 0.05)
        records = {size: folder / f"records-{size}" for size in {disk.size for disk in DISKS}}
        for size, path in records.items():
            write_records(image, size, path)
        yield [Case(f"slow {disk.name}, {'many' if disk.many else 'one'}",
                    goals={"raw": disk.raw, "packed": PACKS, "cache": CACHE},
                    take=lambda disk=disk: measure(disk, tool, image, records[disk.size], folder))
               for disk in DISKS]
