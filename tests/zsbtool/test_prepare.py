"""`zsbtool prepare`: a proved set, put where a restore takes it, and the originals untouched."""

import os
import signal

import pytest

import damagedset
import restoring
import scanset
import zsbtool
from damagedset import FAULTS, Set


def contents(folder):
    """The bytes of each file of a folder, by its name; also of those behind links."""
    return {path.name: path.read_bytes() for path in folder.iterdir()}


def restored_names(made):
    return [scanset.file_name(number, compress=made.compress, suffix="ZRB") for number in range(4)]


@pytest.mark.parametrize("suffix", ["ZSB", "ZRB"])
@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_the_files_are_linked_under_the_names_that_a_restore_takes(tmp_path, compress, suffix):
    made = Set(compress=compress, suffix=suffix)
    source, out = made.write(tmp_path / "set"), tmp_path / "out"
    before = contents(source)
    found = zsbtool.document("prepare", source, out)
    assert sorted(os.listdir(out)) == restored_names(made)
    for number, name in enumerate(restored_names(made)):
        assert (out / name).samefile(source / made.name(number))
    assert contents(source) == before
    assert (found["made"], found["output"], found["problems"]) == (True, str(out), [])
    assert found["files"] == [
        {"name": name, "records": 6, "bytes": os.path.getsize(out / name), "compressed": compress}
        for name in restored_names(made)]
    assert (found["records"], found["bytes"]) == (24, sum(map(len, before.values())))


def test_what_is_prepared_is_restored(tmp_path):
    made = Set(suffix="ZSB")
    made.write(tmp_path / "saved")
    assert zsbtool.run("prepare", tmp_path / "saved", tmp_path / "set").status == 0
    assert restoring.restore_to_file(tmp_path).status == 0
    for file in made.files:
        for number, block in file.records:
            assert restoring.read_block(tmp_path / "device", number) == block


def test_copies_are_files_of_their_own(tmp_path):
    made = Set(suffix="ZSB")
    source, out = made.write(tmp_path / "set"), tmp_path / "out"
    assert zsbtool.document("prepare", "--copy", source, out)["made"] is True
    for number, name in enumerate(restored_names(made)):
        assert not (out / name).samefile(source / made.name(number))
        assert (out / name).read_bytes() == (source / made.name(number)).read_bytes()


def test_an_empty_folder_is_filled(tmp_path):
    source, out = Set().write(tmp_path / "set"), tmp_path / "out"
    out.mkdir()
    assert zsbtool.run("prepare", source, out).status == 0
    assert sorted(os.listdir(out)) == restored_names(Set())


def test_the_name_of_the_folder_may_end_with_slashes(tmp_path):
    Set().write(tmp_path / "set")
    for out in ("a/", "long//"):
        assert zsbtool.run("prepare", "set", out, cwd=tmp_path).status == 0
        assert (tmp_path / out / "T0000000.ZRB").exists()


@pytest.mark.parametrize("fault", [fault for fault in FAULTS if False in fault.kinds],
                         ids=lambda fault: fault.name)
def test_of_a_set_with_problems_nothing_is_made(tmp_path, fault):
    made = Set()
    fault.plant(made)
    found = zsbtool.document("prepare", made.write(tmp_path / "set"), tmp_path / "out", status=2)
    assert (found["made"], found["files"], found["records"]) == (False, [], 0)
    assert [row["code"] for row in found["problems"]] == [fault.code]
    assert os.listdir(tmp_path) == ["set"]


def test_a_set_with_problems_is_prepared_by_force(tmp_path):
    made = Set(suffix="ZSB")
    made[1].fields["crc"] = 1
    made.drop(2)
    found = zsbtool.document("prepare", "--force", made.write(tmp_path / "set"), tmp_path / "out",
                             status=2)
    assert found["made"] is True
    assert [row["code"] for row in found["problems"]] == ["gap", "crc"]
    assert sorted(os.listdir(tmp_path / "out")) == ["T0000000.ZRB", "T0000001.ZRB", "T0000003.ZRB"]


def test_what_a_restore_would_not_read_is_left_out(tmp_path):
    made = Set()
    made.files.append(damagedset.File(4, [], {"flags": 2, "fileNumber": 4,
                                              "scanID": damagedset.OTHER_SCAN}))
    source = made.write(tmp_path / "set")
    assert zsbtool.run("prepare", "--force", source, tmp_path / "out").status == 2
    assert sorted(os.listdir(tmp_path / "out")) == restored_names(made)


def test_a_set_of_another_number_becomes_set_0(tmp_path):
    made = Set(suffix="ZSB")
    for file in made.files:
        file.name = scanset.file_name(file.number, set_number=7)
    source = made.write(tmp_path / "set")
    assert zsbtool.run("prepare", source / made[0].name, tmp_path / "out").status == 0
    assert sorted(os.listdir(tmp_path / "out")) == restored_names(made)


def test_links_in_a_set_are_followed(tmp_path):
    made = Set()
    made.write(tmp_path / "real")
    (tmp_path / "set").mkdir()
    for number in range(4):
        (tmp_path / "set" / made.name(number)).symlink_to(f"../real/{made.name(number)}")
    (tmp_path / "deep").mkdir()
    assert zsbtool.run("prepare", tmp_path / "set", tmp_path / "deep/out").status == 0
    for number in range(4):
        assert (tmp_path / "deep/out" / made.name(number)).samefile(
            tmp_path / "real" / made.name(number))
        assert not (tmp_path / "deep/out" / made.name(number)).is_symlink()


def test_people_get_problems_and_what_was_made(tmp_path, golden):
    made = Set(suffix="ZSB")
    made.write(tmp_path / "sound")
    shown = zsbtool.run("prepare", "sound", "out", cwd=tmp_path)
    assert (shown.status, shown.err) == (0, "")
    golden("prepare-sound.txt", shown.text)
    made[1].fields["crc"] = 1
    made.write(tmp_path / "faulty")
    shown = zsbtool.run("prepare", "faulty", "none", cwd=tmp_path)
    assert (shown.status, shown.err) == (2, "")
    golden("prepare-faulty.txt", shown.text)


def test_the_document_is_what_it_always_was(tmp_path, golden):
    Set(suffix="ZSB").write(tmp_path / "set")
    golden("prepare.json", zsbtool.run("prepare", "--json", "set", "out", cwd=tmp_path).text)


def test_a_set_of_one_empty_file(tmp_path):
    (tmp_path / "set").mkdir()
    scanset.write_file(tmp_path / "set" / "T0000000.ZSB")
    found = zsbtool.document("prepare", tmp_path / "set", tmp_path / "out")
    assert [(file["name"], file["records"]) for file in found["files"]] == [("T0000000.ZRB", 0)]


def test_names_that_are_not_ascii(tmp_path):
    source, out = Set().write(tmp_path / "Käse"), tmp_path / "größer"
    shown = zsbtool.run("prepare", source, out)
    assert (shown.status, shown.text) == (0, f"{out}: 4 files, 24 records, 98.8 KiB\n")


@pytest.mark.parametrize("what", ["missing", "empty"])
def test_without_a_set_it_ends_with_1(tmp_path, what):
    (tmp_path / "empty").mkdir()
    shown = zsbtool.run("prepare", what, "out", cwd=tmp_path)
    assert (shown.status, shown.text, os.listdir(tmp_path)) == (1, "", ["empty"])


def test_a_set_that_cannot_be_read_ends_with_1(somebody):
    source = Set().write(somebody.folder / "set")
    source.chmod(0)
    shown = zsbtool.run("prepare", source, somebody.folder / "out", **somebody.how)
    assert (shown.status, shown.err) == (1, f"zsbtool: {source}: Permission denied\n")
    source.chmod(0o700)


def test_a_folder_that_may_not_be_written_ends_with_1(somebody):
    source = Set().write(somebody.folder / "set")
    source.chmod(0o755)
    closed = somebody.folder / "closed"
    closed.mkdir()
    closed.chmod(0o555)
    shown = zsbtool.run("prepare", source, closed / "out", **somebody.how)
    assert (shown.status, shown.err) == (1, f"zsbtool: {closed / 'out'}: Permission denied\n")


@pytest.mark.parametrize("out, error", [
    ("set", "the folder is not empty"), ("set/T0000000.ZRB", "Not a directory"),
    ("missing/out", "No such file or directory")])
def test_an_output_that_is_no_new_or_empty_folder_ends_with_1(tmp_path, out, error):
    before = contents(Set().write(tmp_path / "set"))
    shown = zsbtool.run("prepare", "set", out, cwd=tmp_path)
    assert (shown.status, shown.text, shown.err) == (1, "", f"zsbtool: {out}: {error}\n")
    assert contents(tmp_path / "set") == before


def test_another_file_system_needs_copies(tmp_path, small_disk):
    source, out = Set().write(tmp_path / "set"), tmp_path / "disk"
    out.mkdir()
    shown = zsbtool.run("prepare", source, out / "new", before=small_disk(out, "1m"))
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == (f"zsbtool: {source}/T0000000.ZRB: Invalid cross-device link; --copy copies "
                         "the files instead\n")
    shown = zsbtool.run("prepare", "--copy", source, out / "new", before=small_disk(out, "1m"))
    assert (shown.status, shown.err) == (0, "new\n")


def test_a_full_file_system_ends_with_1_and_leaves_nothing(tmp_path, small_disk):
    source, out = Set().write(tmp_path / "set"), tmp_path / "disk"
    out.mkdir()
    for target in (out, out / "new"):
        shown = zsbtool.run("prepare", "--copy", source, target, before=small_disk(out, "64k"))
        assert (shown.status, shown.text) == (1, "")
        assert shown.err == f"zsbtool: {target}: No space left on device\n"


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_leaves_nothing(tmp_path, number):
    source = Set().write(tmp_path / "set")
    ended = zsbtool.signalled(number, "prepare", source, tmp_path / "out")
    assert (ended.status, ended.text, os.listdir(tmp_path)) == (-number, "", ["set"])
    assert len(os.listdir(source)) == 4
