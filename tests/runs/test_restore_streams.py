"""How a restore uses the system: one write for each block, one seek for each jump, few reads."""

import collections

import pytest

import poolTypes
import restoring
import scanset

FULL = scanset.FULL_FILE_RECORDS
MOST_READS = 0.07
MOST_SEEKS = 0.01

# Block numbers and how many jumps a device at its start makes between them.
ORDERS = {
    "one run from the start": (range(FULL), 0),
    "one run from elsewhere": (range(9, 9 + FULL), 1),
    "runs with gaps": ([number for start in range(0, 40_000, 400)
                        for number in range(start, start + 20)], 99),
    "every second block": (range(0, 2 * FULL, 2), FULL - 1),
    "backwards": (range(FULL - 1, -1, -1), FULL),
    "the same block again": ([5] * 200, 200),
}


class Traced:
    """A restore under a tracer: which calls came to its device and to its scan files."""

    def __init__(self, folder, device, *options):
        trace = folder / "trace.txt"
        self.run = restoring.restore(
            folder, device, "--validation-skip", *options, env=restoring.without_leak_check(),
            timeout=240,
            before=restoring.trace_command(
                trace, "read,pread64,readv,preadv,write,pwrite64,writev,pwritev,lseek,fsync"))
        self._calls = restoring.traced_calls(trace)
        self._device = str(device)

    def _count(self, wanted):
        return collections.Counter(call.name for call in self._calls if wanted(call.path or ""))

    @property
    def on_device(self):
        return self._count(lambda path: path == self._device)

    @property
    def on_scan_files(self):
        return self._count(lambda path: path.endswith(".ZRB"))

    @property
    def sizes_written(self):
        return {int(call.arguments.split(",")[-1].split(")")[0].split("<unfinished")[0])
                for call in self._calls if call.name == "write" and call.path == self._device}


@pytest.fixture
def folder(tmp_path):
    return restoring.make_folder(tmp_path / "run")


def expect_few_reads(traced, records):
    """The dialogue's look at the first file included."""
    calls = traced.on_scan_files
    assert set(calls) <= {"read", "lseek"} and calls["read"] > 1
    assert calls["read"] <= MOST_READS * records
    assert calls["lseek"] <= MOST_SEEKS * records


@pytest.mark.parametrize("order", ORDERS)
def test_each_block_is_one_write_and_each_jump_one_seek(folder, order):
    numbers, jumps = ORDERS[order]
    records = restoring.records(numbers)
    scanset.write_set(folder / "set", records)
    device = folder / "device"
    device.write_bytes(b"")
    traced = Traced(folder, device)
    assert traced.run.status == 0
    assert traced.on_device == {"write": len(records), "fsync": 1, **({"lseek": jumps} if jumps
                                                                      else {})}
    assert traced.sizes_written == {restoring.BLOCK}
    expect_few_reads(traced, len(records))
    wanted = dict(records)
    found = {number: block for number, block in poolTypes.blocks(device)
             if block != restoring.EMPTY}
    assert found == wanted


def test_a_block_that_is_not_written_is_a_jump(folder):
    records = restoring.records(range(3)) + restoring.records([3], b"PASM") + \
        restoring.records([4, 5])
    scanset.write_set(folder / "set", records)
    device = folder / "device"
    device.write_bytes(b"")
    assert Traced(folder, device).on_device == {"write": 5, "lseek": 1, "fsync": 1}


def test_a_block_device_is_written_the_same_way(loop, folder, tmp_path):
    records = restoring.records([*range(100), *range(1000, 1100)])
    scanset.write_set(folder / "set", records)
    with loop(restoring.target_image(tmp_path / "target.img", 1200)) as device:
        assert Traced(folder, device).on_device == {"write": 200, "lseek": 1, "fsync": 1}


def noise(count):
    """Records that hardly compress, so that the compressed file is as long as may be."""
    return [(number, b"LEAF" + b"".join(hash((number, at)).to_bytes(8, "little", signed=True)
                                        for at in range(511)) + bytes(4))
            for number in range(count)]


@pytest.mark.parametrize("kind", ["raw", "compressed", "compressed noise"])
def test_a_full_scan_file_is_read_in_large_pieces(folder, kind):
    records = noise(FULL) if "noise" in kind else restoring.records(range(FULL))
    (file,) = scanset.write_set(folder / "set", records, compress=kind != "raw", level=1)
    assert (file.stat().st_size > 9_000_000) == (kind != "compressed")
    device = folder / "device"
    device.write_bytes(b"")
    traced = Traced(folder, device)
    assert traced.run.status == 0
    assert traced.on_device == {"write": FULL, "fsync": 1}
    expect_few_reads(traced, FULL)
    assert dict(poolTypes.blocks(device)) == dict(records)


def test_files_behind_each_other_are_read_as_cheaply(folder):
    scanset.write_set(folder / "set", restoring.records(range(3000)), per_file=1000)
    device = folder / "device"
    device.write_bytes(b"")
    traced = Traced(folder, device)
    assert traced.on_device == {"write": 3000, "fsync": 1}
    expect_few_reads(traced, 3000)


def test_an_unvalidated_device_is_never_read(folder, loop, tmp_path):
    scanset.write_set(folder / "set", restoring.records(range(10)))
    with loop(restoring.target_image(tmp_path / "target.img", 20)) as device:
        calls = Traced(folder, device).on_device
    assert not any("read" in name for name in calls)
