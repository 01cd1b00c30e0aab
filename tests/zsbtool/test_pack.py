"""`zsbtool pack` and `unpack`: a set from raw to compressed files and back."""

import os
import pathlib
import signal
import struct

import pytest

import damagedset
import restoring
import saving
import scanset
import zsbtool
from damagedset import FAULTS, Set


def contents(folder):
    return {path.name: path.read_bytes() for path in sorted(pathlib.Path(folder).iterdir())}


def kept(header):
    return {name: value for name, value in header.items() if name not in ("flags", "fileEof")}


def there_and_back(folder, source):
    """Packs and unpacks; the files of both ways."""
    assert zsbtool.run("pack", source, folder / "packed").status == 0
    assert zsbtool.run("unpack", folder / "packed", folder / "raw").status == 0
    return scanset.read_set(folder / "packed", suffix=next(iter(contents(source)))[-3:])


@pytest.mark.parametrize("suffix", ["ZSB", "ZRB"])
def test_there_and_back_is_the_same_byte_for_byte(tmp_path, suffix):
    made = Set(suffix=suffix)
    for file in made.files:
        file.fields["flags"] |= 0x320
        file.fields.update(headerVersion=1, headerRevision=7, createTime=5 + file.number,
                           versionMajor=3, versionMinor=9, compressionLevel=file.number + 1,
                           reserved=bytes(range(68)))
    source = made.write(tmp_path / "set")
    packed = there_and_back(tmp_path, source)
    assert contents(tmp_path / "raw") == contents(source)
    raw = scanset.read_set(source, suffix=suffix)
    assert [file.path.name for file in packed] == [
        scanset.file_name(number, compress=True, suffix=suffix) for number in range(4)]
    for before, after in zip(raw, packed, strict=True):
        assert after.records == before.records
        assert kept(after.header) == kept(before.header)
        assert after.header["flags"] == before.header["flags"] | 0x041
        assert [one for one in after.problems if one != "wrong reserved"] == []


def test_a_real_save_goes_there_and_back(pool, tmp_path):
    pool(size="16M").copy_to(tmp_path / "pool.img")
    (tmp_path / "raw-save").mkdir()
    saved = saving.save("pool.img", tmp_path, "-a", preload=True)
    assert saved.status == 0
    for path in tmp_path.glob("T*.ZSB"):
        path.rename(tmp_path / "raw-save" / path.name)
    packed = there_and_back(tmp_path, tmp_path / "raw-save")
    assert contents(tmp_path / "raw") == contents(tmp_path / "raw-save")
    assert len(packed) > 1
    assert [file.problems for file in packed] == [[] for _ in packed]


def test_what_is_packed_is_what_a_compressed_save_writes(tmp_path):
    compressed = Set(compress=True).write(tmp_path / "compressed")
    assert zsbtool.run("unpack", compressed, tmp_path / "raw").status == 0
    assert contents(tmp_path / "raw") == contents(Set().write(tmp_path / "wanted"))
    assert zsbtool.run("pack", tmp_path / "raw", tmp_path / "again").status == 0
    assert contents(tmp_path / "again") == contents(compressed)


@pytest.mark.parametrize("level", [-1, 0, 1, 9])
def test_the_level_is_that_of_the_header(tmp_path, level):
    made = Set()
    for file in made.files:
        file.fields["compressionLevel"] = level
    packed = there_and_back(tmp_path, made.write(tmp_path / "set"))
    wanted = {-1: 2, 0: 0, 1: 0, 9: 3}[level]
    assert {file.data[1] >> 6 for file in packed} == {wanted}  # the hint in the stream's header


def test_the_document_tells_what_was_made(tmp_path):
    source = Set().write(tmp_path / "set")
    found = zsbtool.document("pack", source, tmp_path / "packed")
    sizes = {name: len(data) for name, data in contents(tmp_path / "packed").items()}
    assert found == {
        "format": 1, "command": "pack", "made": True, "output": str(tmp_path / "packed"),
        "files": [{"name": name, "records": 6, "bytes": size, "compressed": True}
                  for name, size in sizes.items()],
        "records": 24, "bytes": sum(sizes.values()), "problems": [], "warnings": []}
    found = zsbtool.document("unpack", tmp_path / "packed", tmp_path / "raw")
    assert (found["made"], [file["compressed"] for file in found["files"]]) == (True, [False] * 4)


def test_people_get_one_line(tmp_path, golden):
    Set().write(tmp_path / "set")
    golden("pack.txt", zsbtool.run("pack", "set", "packed", cwd=tmp_path).text)
    golden("unpack.txt", zsbtool.run("unpack", "packed", "raw", cwd=tmp_path).text)
    golden("unpack.json", zsbtool.run("unpack", "--json", "packed", "again", cwd=tmp_path).text)


CASES = [pytest.param(fault, compress, id=f"{fault.name}{' (compressed)' * compress}")
         for fault in FAULTS for compress in fault.kinds if fault.code != "mixed-compression"]


@pytest.mark.parametrize("fault, compress", CASES)
def test_of_a_set_with_problems_nothing_is_made(tmp_path, fault, compress):
    made = Set(compress=compress)
    fault.plant(made)
    found = zsbtool.document("unpack" if compress else "pack", made.write(tmp_path / "set"),
                             tmp_path / "out", status=2)
    assert (found["made"], found["files"]) == (False, [])
    assert [row["code"] for row in found["problems"]] == [fault.code]
    assert os.listdir(tmp_path) == ["set"]


def test_people_are_told_why_nothing_was_made(tmp_path, golden):
    made = Set()
    made[1].fields["crc"] = 1
    made.write(tmp_path / "set")
    shown = zsbtool.run("pack", "set", "packed", cwd=tmp_path)
    assert (shown.status, shown.err) == (2, "")
    golden("pack-faulty.txt", shown.text)


@pytest.mark.parametrize("command, compress, flags, error", [
    ("pack", True, 0x041, "it is compressed already"),
    ("unpack", False, 0, "it is raw already"),
    ("pack", False, 0x045, "it carries the flag that makes compressed files raw"),
    ("unpack", False, 0x045, "it carries the flag that makes compressed files raw"),
    ("pack", False, 0x004, "it carries the flag that makes compressed files raw"),
    ("pack", False, 0x040, "it is raw, and has a flag of compressed files"),
], ids=["compressed already", "raw already", "pack raw anyway", "unpack raw anyway",
        "would be raw anyway", "a stray flag"])
def test_what_is_not_in_the_other_form_ends_with_1(tmp_path, command, compress, flags, error):
    source = scanset.write_set(tmp_path, restoring.records([1, 2]), compress=compress,
                               flags=flags | 2)[0]
    shown = zsbtool.run(command, tmp_path, tmp_path / "out")
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {source}: {error}\n"
    assert os.listdir(tmp_path) == [source.name]


def test_one_file_in_the_asked_form_is_enough(tmp_path):
    made = Set()
    made.set_flag(2, 0x041)
    shown = zsbtool.run("pack", made.write(tmp_path / "set"), tmp_path / "out")
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.endswith("T0000002.ZRB: it is compressed already\n")


@pytest.mark.parametrize("level", [-2, 10, 77])
def test_a_level_that_there_is_not_ends_with_1(tmp_path, level):
    made = Set()
    made[3].fields["compressionLevel"] = level
    source = made.write(tmp_path / "set")
    for name, data in contents(source).items():
        (source / name).write_bytes(data[:68] + struct.pack("<i", level) + data[72:])
    shown = zsbtool.run("pack", source, tmp_path / "out")
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.endswith(
        "T0000000.ZRB: the compression level in its header is none\n")


@pytest.mark.parametrize("jobs", ["1", "2", "7"])
def test_the_result_does_not_depend_on_the_jobs(tmp_path, jobs):
    source = Set().write(tmp_path / "set")
    for name, options in (("one", ("--jobs", jobs)), ("two", ())):
        assert zsbtool.run("pack", *options, source, tmp_path / name).status == 0
    assert contents(tmp_path / "one") == contents(tmp_path / "two")


def test_a_set_of_one_empty_file(tmp_path):
    (tmp_path / "set").mkdir()
    scanset.write_file(tmp_path / "set" / "T0000000.ZSB")
    [packed] = there_and_back(tmp_path, tmp_path / "set")
    assert (packed.problems, packed.records) == ([], [])
    assert contents(tmp_path / "raw") == contents(tmp_path / "set")


def test_names_that_are_not_ascii(tmp_path):
    made = Set()
    for file in made.files:
        file.fields["poolName"] = b"".join(bytes((c, 0)) for c in "Käse\x1b".encode())
    there_and_back(tmp_path, made.write(tmp_path / "größer"))
    assert contents(tmp_path / "raw") == contents(tmp_path / "größer")


@pytest.mark.parametrize("command", ["pack", "unpack"])
@pytest.mark.parametrize("what", ["missing", "empty"])
def test_without_a_set_it_ends_with_1(tmp_path, command, what):
    (tmp_path / "empty").mkdir()
    shown = zsbtool.run(command, what, "out", cwd=tmp_path)
    assert (shown.status, shown.text, os.listdir(tmp_path)) == (1, "", ["empty"])


def test_a_file_that_cannot_be_read_is_a_fault_of_the_set(somebody):
    made = Set()
    source = made.write(somebody.folder / "set")
    source.chmod(0o755)
    (source / made.name(1)).chmod(0)
    somebody.folder.chmod(0o777)
    shown = zsbtool.run("pack", "--json", source, somebody.folder / "out", **somebody.how)
    found = zsbtool.checked("pack", shown.out)
    assert shown.status == 2
    assert [(row["code"], row["file"]) for row in found["problems"]] == [
        ("unreadable", made.name(1))]
    assert os.listdir(somebody.folder) == ["set"]


@pytest.mark.parametrize("out, error", [
    ("set", "the folder is not empty"), ("set/T0000000.ZRB", "Not a directory"),
    ("missing/out", "No such file or directory")])
def test_an_output_that_is_no_new_or_empty_folder_ends_with_1(tmp_path, out, error):
    before = contents(Set().write(tmp_path / "set"))
    shown = zsbtool.run("pack", "set", out, cwd=tmp_path)
    assert (shown.status, shown.text, shown.err) == (1, "", f"zsbtool: {out}: {error}\n")
    assert contents(tmp_path / "set") == before


def test_a_full_file_system_ends_with_1_and_leaves_nothing(tmp_path, small_disk):
    source, out = Set(compress=True).write(tmp_path / "set"), tmp_path / "disk"
    out.mkdir()
    for target in (out, out / "new"):
        shown = zsbtool.run("unpack", source, target, before=small_disk(out, "64k"))
        assert (shown.status, shown.text) == (1, "")
        assert shown.err == f"zsbtool: {target}: No space left on device\n"


def test_a_limit_of_file_sizes_ends_with_1_and_leaves_nothing(tmp_path):
    source = Set(compress=True).write(tmp_path / "set")
    shown = zsbtool.run("unpack", source, tmp_path / "out",
                        before=("bash", "-c", 'ulimit -f 8; exec "$@"', "bash"))
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {tmp_path / 'out'}: File too large\n"
    assert os.listdir(tmp_path) == ["set"]


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_leaves_nothing(tmp_path, number):
    source = Set().write(tmp_path / "set")
    before = contents(source)
    ended = zsbtool.signalled(number, "pack", source, tmp_path / "out")
    assert (ended.status, ended.text, os.listdir(tmp_path)) == (-number, "", ["set"])
    assert contents(source) == before


def test_a_stray_is_a_problem_as_any_other(tmp_path):
    made = Set()
    made.files.append(damagedset.File(
        4, [], {"flags": 2, "fileNumber": 4, "scanID": damagedset.OTHER_SCAN}))
    found = zsbtool.document("pack", made.write(tmp_path / "set"), tmp_path / "out", status=2)
    assert [row["code"] for row in found["problems"]] == ["stray-file"]
