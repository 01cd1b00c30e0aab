"""`zsbtool find`: in which files of a set a block lies."""

import pytest

import damagedset
import restoring
import scanset
import zsbtool
from damagedset import Set


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_a_block_has_its_place(tmp_path, compress):
    made = Set(compress=compress)
    found = zsbtool.document("find", made.write(tmp_path), "9")
    assert found["block"] == 9
    assert found["places"] == [{"file": made.name(1), "index": 2, "type": "BT leaf Z32",
                                "offset": None if compress else 660 + 2 * 4104}]


def test_the_offset_is_that_of_the_record(tmp_path):
    made = Set()
    made.write(tmp_path)
    for block in (1, 6, 7, 24):
        place, = zsbtool.document("find", tmp_path, block)["places"]
        raw = (tmp_path / place["file"]).read_bytes()[place["offset"]:][:8]
        assert int.from_bytes(raw, "little") == block


def test_a_block_that_is_there_several_times_has_all_its_places(tmp_path):
    made = Set()
    made[0].records += [made[0].records[1]] * 2
    made[3].records.insert(0, (2, b"BRCH" + bytes(4092)))
    places = zsbtool.document("find", made.write(tmp_path), 2)["places"]
    assert [(row["file"], row["index"], row["type"]) for row in places] == [
        (made.name(0), 1, "BT leaf Z32"), (made.name(0), 6, "BT leaf Z32"),
        (made.name(0), 7, "BT leaf Z32"), (made.name(3), 0, "BT branch")]


@pytest.mark.parametrize("jobs", [1, 3, 8])
def test_the_order_does_not_depend_on_the_jobs(tmp_path, jobs):
    made = Set()
    for file in made.files:
        file.records.append((99, bytes(4096)))
    places = zsbtool.document("find", "--jobs", jobs, made.write(tmp_path), 99)["places"]
    assert [row["file"] for row in places] == [made.name(number) for number in range(4)]


def test_a_block_that_is_not_there_ends_with_2(tmp_path):
    Set().write(tmp_path)
    assert zsbtool.document("find", tmp_path, "77", status=2)["places"] == []
    shown = zsbtool.run("find", tmp_path, "77")
    assert (shown.status, shown.text, shown.err) == (2, "block 77 is not in the set\n", "")


def test_people_get_a_table(tmp_path, golden):
    made = Set()
    made[3].records.insert(0, made[1].records[2])
    golden("find.txt", zsbtool.run("find", made.write(tmp_path), "9").text)


def test_programs_get_the_document_of_the_golden_file(tmp_path, golden):
    golden("find.json", zsbtool.run("find", "--json", Set().write(tmp_path), "9").text)


def test_files_that_could_not_be_searched_are_named(tmp_path):
    made = Set(compress=True)
    made[1].damage.append(damagedset.cut_to(100))
    made[3].damage.append(lambda raw: raw[:-20])
    shown = zsbtool.run("find", "--json", made.write(tmp_path), "3")
    assert shown.status == 2
    assert shown.err == ("zsbtool: C0000001.ZRB: it has no header of a scan file\n"
                         "zsbtool: C0000003.ZRB: it is cut short\n")
    assert len(zsbtool.checked("find", shown.out)["places"]) == 1


def test_the_highest_block_there_can_be_is_found(tmp_path):
    scanset.write_set(tmp_path, restoring.records([5]) + [(2**64 - 1, bytes(4096))])
    assert len(zsbtool.document("find", tmp_path, 2**64 - 1)["places"]) == 1


@pytest.mark.parametrize("typed", ["x", "-1", "1-2", "", "18446744073709551616", "0x10", "1 "])
def test_what_is_no_block_ends_with_1(tmp_path, typed):
    shown = zsbtool.run("find", Set().write(tmp_path), "--", typed)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.startswith("zsbtool: ")
