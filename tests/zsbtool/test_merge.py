"""`zsbtool merge`: sets of one pool taken in several tries become one."""

import os
import signal
import time

import pytest

import damagedset
import restoring
import scanset
import zsbtool
from damagedset import FAULTS, Set

POOL_BLOCKS = 20_000


def write_try(folder, blocks, *, end="last", records=None, per_file=6, **fields):
    """One try at saving a pool: `end` is how its last file was left."""
    folder.mkdir()
    paths = scanset.write_set(folder, records or restoring.records(blocks), per_file=per_file,
                              suffix="ZSB", **{"poolBlocks": POOL_BLOCKS, **fields})
    if end != "last":
        raw = paths[-1].read_bytes()
        flags = int.from_bytes(raw[60:64], "little") & ~0x002
        flags |= {"stopped": 0x008, "state-change": 0x010}.get(end, 0)
        raw = raw[:60] + flags.to_bytes(4, "little") + raw[64:]
        if end == "never-closed":
            raw = damagedset.never_closed(raw)
        elif end == "truncated":
            raw = raw[:-10]
        paths[-1].write_bytes(raw)
    return folder


def merged(folder, *, compress=False):
    """The files that were made, which must be sound."""
    files = scanset.read_set(folder)
    assert [file.problems for file in files] == [[] for _ in files]
    assert [file.path.name for file in files] == [
        scanset.file_name(number, compress=compress) for number in range(len(files))]
    return files


def records_of(folder, **how):
    return [record for file in merged(folder, **how) for record in file.records]


def files_in(*folders):
    return {path: path.read_bytes() for folder in folders for path in folder.iterdir()}


@pytest.mark.parametrize("end", ["stopped", "state-change", "never-closed", "no-last-file",
                                 "truncated"])
@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_an_unfinished_try_is_completed_by_another(tmp_path, end, compress):
    first = write_try(tmp_path / "1", range(1, 21), end=end, compress=compress)
    second = write_try(tmp_path / "2", range(15, 41), scanID=damagedset.OTHER_SCAN)
    before = files_in(first, second)
    found = zsbtool.document("merge", first, second, "-o", tmp_path / "out")
    assert records_of(tmp_path / "out") == restoring.records(range(1, 41))
    assert (found["made"], found["problems"], found["differ"]) == (True, [], [])
    assert {row["code"] for row in found["warnings"]} >= {end} - {"never-closed", "truncated"}
    assert {row["set"] for row in found["warnings"]} == {1}
    assert [one["reachedEnd"] for one in found["sets"]] == [False, True]
    assert files_in(first, second) == before
    assert zsbtool.run("check", tmp_path / "out").status == 0


def test_the_records_are_those_of_both_in_the_order_of_the_pool(tmp_path):
    first = write_try(tmp_path / "1", range(0, 4000, 2), per_file=300)
    second = write_try(tmp_path / "2", range(1, 4000, 3), per_file=170)
    third = write_try(tmp_path / "3", range(3900, 6000), per_file=2555)
    zsbtool.document("merge", first, second, third, "-o", tmp_path / "out")
    blocks = sorted({*range(0, 4000, 2), *range(1, 4000, 3), *range(3900, 6000)})
    assert records_of(tmp_path / "out") == restoring.records(blocks)


def test_files_whose_blocks_lie_among_each_other_are_put_in_order(tmp_path):
    (tmp_path / "1").mkdir()
    for number, blocks in enumerate([[1, 5, 9], [2, 6, 10], [3, 7, 11]]):
        scanset.write_file(tmp_path / "1" / scanset.file_name(number), restoring.records(blocks),
                           fileNumber=number, flags=2 if number == 2 else 0)
    second = write_try(tmp_path / "2", [4, 8], poolBlocks=16384)
    zsbtool.document("merge", tmp_path / "1", second, "-o", tmp_path / "out")
    assert records_of(tmp_path / "out") == restoring.records(range(1, 12))


@pytest.mark.parametrize("blocks, sizes", [(2555, [2555]), (2556, [2555, 1]),
                                           (5110, [2555, 2555]), (0, [0])])
@pytest.mark.parametrize("jobs", ["1", "3"])
def test_files_are_split_as_a_save_splits(tmp_path, blocks, sizes, jobs):
    first = write_try(tmp_path / "1", range(blocks), per_file=2000)
    second = write_try(tmp_path / "2", range(0, blocks, 7), per_file=100)
    found = zsbtool.document("merge", "-j", jobs, first, second, "-o", tmp_path / "out")
    files = merged(tmp_path / "out")
    assert [len(file.records) for file in files] == sizes
    assert [file["records"] for file in found["files"]] == sizes
    assert [file.header["flags"] for file in files] == [0] * (len(sizes) - 1) + [0x002]
    assert [file.header["fileNumber"] for file in files] == list(range(len(sizes)))


def test_the_headers_are_those_of_one_save(tmp_path):
    first = write_try(tmp_path / "1", range(1, 9), createTime=1_700_005_000, end="stopped",
                      compressionLevel=7, pool_name="Käse", reserved=bytes(range(68)),
                      headerVersion=1, versionMajor=9, versionMinor=77)
    second = write_try(tmp_path / "2", range(9, 12), createTime=1_700_001_000, pool_name="Käse",
                       flags=0x302)
    before = int(time.time())
    assert zsbtool.run("merge", first, second, "-o", tmp_path / "out").status == 0
    [file] = merged(tmp_path / "out")
    header = file.header
    assert header["poolName"] == scanset.read_set(first)[0].header["poolName"]
    assert {name: header[name] for name in (
        "headerVersion", "headerRevision", "createTime", "poolBlocks", "flags",
        "compressionLevel", "versionMajor", "versionMinor", "reserved")} == {
        "headerVersion": 2, "headerRevision": 1, "createTime": 1_700_001_000,
        "poolBlocks": POOL_BLOCKS, "flags": 0x302, "compressionLevel": 7, "versionMajor": 1,
        "versionMinor": 1, "reserved": bytes(68)}
    assert before <= header["closeTime"] <= time.time()
    assert header["scanID"] not in (bytes(range(16)), bytes(16))


def test_a_merged_set_that_no_try_completed_is_a_stopped_one(tmp_path):
    first = write_try(tmp_path / "1", range(1, 9), end="stopped")
    second = write_try(tmp_path / "2", range(5, 12), end="truncated")
    found = zsbtool.document("merge", first, second, "-o", tmp_path / "out")
    [file] = merged(tmp_path / "out")
    assert (file.header["flags"], found["made"]) == (0x008, True)
    assert [one["reachedEnd"] for one in found["sets"]] == [False, False]


def test_a_try_whose_last_file_is_cut_has_not_reached_the_end(tmp_path):
    first = write_try(tmp_path / "1", range(1, 9), end="stopped")
    second = write_try(tmp_path / "2", range(5, 12), per_file=100)
    path = next(second.iterdir())
    path.write_bytes(path.read_bytes()[:-1])
    zsbtool.document("merge", first, second, "-o", tmp_path / "out")
    [file] = merged(tmp_path / "out")
    assert (file.header["flags"], len(file.records)) == (0x008, 10)


def test_compressed_files_are_made_of_raw_ones(tmp_path):
    first = write_try(tmp_path / "1", range(3000), end="stopped", per_file=2555)
    second = write_try(tmp_path / "2", range(2900, 6000), per_file=2555)
    for name, options in (("one", ()), ("two", ("--jobs", "1"))):
        assert zsbtool.run("merge", "--compress", *options, first, second, "-o",
                           tmp_path / name).status == 0
        assert records_of(tmp_path / name, compress=True) == restoring.records(range(6000))
    assert [file.header["flags"] for file in merged(tmp_path / "one", compress=True)] == [
        0x041, 0x041, 0x043]
    assert [file.data for file in merged(tmp_path / "one", compress=True)] == [
        file.data for file in merged(tmp_path / "two", compress=True)]


class TestBlocksThatDiffer:
    """A pool that was written to between two tries."""

    @pytest.fixture
    def tries(self, tmp_path):
        first = write_try(tmp_path / "1", range(1, 21), end="stopped")
        other = restoring.records(range(10, 31))
        for number in (12, 17):
            other[number - 10] = (number, b"MFL " + bytes(4092))
        second = write_try(tmp_path / "2", None, records=other)
        third = write_try(tmp_path / "3", [17, 40])
        return first, second, third

    def test_nothing_is_made_and_each_is_named(self, tmp_path, tries):
        found = zsbtool.document("merge", *tries, "-o", tmp_path / "out", status=2)
        assert found["differ"] == [
            {"block": 12, "type": "BT leaf Z32", "sets": [1, 2], "taken": None},
            {"block": 17, "type": "BT leaf Z32", "sets": [1, 2, 3], "taken": None}]
        assert (found["made"], found["files"], found["problems"]) == (False, [], [])
        assert sorted(os.listdir(tmp_path)) == ["1", "2", "3"]

    def test_those_of_the_preferred_set_are_taken(self, tmp_path, tries):
        for number, wanted in ((1, b"LEAF"), (2, b"MFL ")):
            out = tmp_path / f"out{number}"
            found = zsbtool.document("merge", "--prefer", number, *tries, "-o", out)
            assert [(row["block"], row["taken"]) for row in found["differ"]] == [
                (12, number), (17, number)]
            found = dict(records_of(out))
            assert {found[12][:4], found[17][:4]} == {wanted}
            assert sorted(found) == [*range(1, 31), 40]

    def test_a_preferred_set_decides_what_it_holds_alone(self, tmp_path, tries):
        found = zsbtool.document("merge", "--prefer", 3, *tries, "-o", tmp_path / "out", status=2)
        assert [(row["block"], row["taken"]) for row in found["differ"]] == [(12, None), (17, 3)]
        assert found["made"] is False

    def test_people_are_told_each(self, tmp_path, tries, golden):
        names = [folder.name for folder in tries]
        shown = zsbtool.run("merge", *names, "-o", "out", cwd=tmp_path)
        assert (shown.status, shown.err) == (2, "")
        golden("merge-differ.txt", shown.text)
        shown = zsbtool.run("merge", *names, "-o", "out", "--prefer", "1", cwd=tmp_path)
        assert (shown.status, shown.err) == (0, "")
        golden("merge-prefer.txt", shown.text)

    def test_the_document_is_what_it_always_was(self, tmp_path, tries, golden):
        shown = zsbtool.run("merge", "--json", *[folder.name for folder in tries], "-o", "out",
                            "--prefer", "2", cwd=tmp_path)
        golden("merge.json", shown.text)

    def test_many_are_found_in_their_order_by_any_number_of_jobs(self, tmp_path):
        first = write_try(tmp_path / "1", range(9000), per_file=2555)
        second = write_try(tmp_path / "2", None, per_file=2555,
                           records=restoring.records(range(4000, 9000), b"MFL "))
        for jobs in ("1", "3"):
            found = zsbtool.document("merge", "-j", jobs, first, second, "-o", tmp_path / "out",
                                     status=2)
            assert [row["block"] for row in found["differ"]] == list(range(4000, 9000))


UNFINISHED = ("stopped", "state-change", "never-closed", "no-last-file", "truncated")
CASES = [pytest.param(fault, compress, id=f"{fault.name}{' (compressed)' * compress}")
         for fault in FAULTS for compress in fault.kinds]


@pytest.mark.parametrize("fault, compress", CASES)
def test_only_what_is_unfinished_is_merged(tmp_path, fault, compress):
    made, other = Set(compress=compress), Set()
    fault.plant(made)
    merges = fault.code in UNFINISHED
    found = zsbtool.document("merge", other.write(tmp_path / "1"), made.write(tmp_path / "2"),
                             "-o", tmp_path / "out", status=0 if merges else 2)
    rows = found["warnings" if merges else "problems"]
    assert {(row["set"], row["code"]) for row in rows} == {(2, fault.code)}
    if merges:
        assert [block for block, _ in records_of(tmp_path / "out")] == list(range(1, 25))
    else:
        assert sorted(os.listdir(tmp_path)) == ["1", "2"]


@pytest.mark.parametrize("fields, text", [
    ({"pool_name": "OTHER"}, 'its pool is "OTHER", and that of the first set is "POOL"'),
    ({"poolBlocks": 70}, "its pool has 70 blocks, and that of the first set has 20000")])
def test_sets_of_two_pools_are_not_merged(tmp_path, fields, text):
    first = write_try(tmp_path / "1", range(1, 9))
    second = write_try(tmp_path / "2", range(1, 9), **fields)
    found = zsbtool.document("merge", first, second, "-o", tmp_path / "out", status=2)
    assert found["problems"] == [{"set": 2, "code": "mixed-pool", "file": None, "text": text}]
    assert sorted(os.listdir(tmp_path)) == ["1", "2"]
    shown = zsbtool.run("merge", first, second, "-o", tmp_path / "out")
    assert shown.text.splitlines()[-1] == "nothing made: 1 problem"


@pytest.mark.parametrize("typed", [
    ("1", "-o", "out"), ("1", "2"), ("1", "2", "-o", "out", "--prefer", "0"),
    ("1", "2", "-o", "out", "--prefer", "3"), ("1", "missing", "-o", "out"),
    ("1", "empty", "-o", "out"), ("1", "2", "-o", "1"), ("1", "2", "-o", "missing/out")])
def test_what_cannot_run_ends_with_1(tmp_path, typed):
    write_try(tmp_path / "1", range(1, 9))
    write_try(tmp_path / "2", range(1, 9))
    (tmp_path / "empty").mkdir()
    shown = zsbtool.run("merge", *typed, cwd=tmp_path)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.startswith("zsbtool: ")
    assert sorted(os.listdir(tmp_path)) == ["1", "2", "empty"]


def test_sets_of_one_empty_file(tmp_path):
    first = write_try(tmp_path / "1", [], end="stopped")
    second = write_try(tmp_path / "größer", [])
    assert zsbtool.run("merge", first, second, "-o", tmp_path / "out").status == 0
    [file] = merged(tmp_path / "out")
    assert (file.records, file.header["flags"]) == ([], 0x002)


def test_a_file_that_cannot_be_read_is_a_fault(somebody):
    for name in ("1", "2"):
        write_try(somebody.folder / name, range(1, 9)).chmod(0o755)
    (somebody.folder / "2" / "T0000000.ZSB").chmod(0)
    somebody.folder.chmod(0o777)
    shown = zsbtool.run("merge", "--json", somebody.folder / "1", somebody.folder / "2", "-o",
                        somebody.folder / "out", **somebody.how)
    found = zsbtool.checked("merge", shown.out)
    assert shown.status == 2
    assert [(row["set"], row["code"]) for row in found["problems"]] == [(2, "unreadable")]


def test_a_full_file_system_ends_with_1_and_leaves_nothing(tmp_path, small_disk):
    first = write_try(tmp_path / "1", range(1, 30))
    second = write_try(tmp_path / "2", range(20, 50))
    out = tmp_path / "disk"
    out.mkdir()
    shown = zsbtool.run("merge", first, second, "-o", out / "new", before=small_disk(out, "64k"))
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {out / 'new'}: No space left on device\n"


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_leaves_nothing(tmp_path, number):
    first = write_try(tmp_path / "1", range(1, 9))
    second = write_try(tmp_path / "2", range(5, 12))
    ended = zsbtool.signalled(number, "merge", first, second, "-o", tmp_path / "out")
    assert (ended.status, ended.text, sorted(os.listdir(tmp_path))) == (-number, "", ["1", "2"])
