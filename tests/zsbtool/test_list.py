"""`zsbtool list`: what is in a set, as counts and record by record."""

import collections
import subprocess

import pytest

import damagedset
import poolTypes
import restoring
import saving
import scanset
import zsbtool
from damagedset import Set


def counts(found):
    return {row["name"]: row["count"] for row in found["types"] if row["count"]}


def test_every_type_has_its_count(pool, tmp_path):
    made = pool(size="16M")
    made.copy_to(tmp_path / "pool.img")
    assert saving.save("pool.img", tmp_path, "-a", preload=True).status == 0
    found = zsbtool.document("list", tmp_path)
    saved = collections.Counter(poolTypes.classify(block)
                                for _, block in scanset.set_records(tmp_path))
    assert counts(found) == saved
    magics = {**dict(poolTypes.TYPES), "KUVO(New)": b"oVUk"}
    assert [(row["name"], row["magic"]) for row in found["types"]] == [
        (name, magics[name].decode() if magics[name] else None) for name in poolTypes.NAMES]


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_every_record_has_its_place(tmp_path, compress):
    made = Set(compress=compress)
    found = zsbtool.document("list", "--records", made.write(tmp_path))
    wanted = [{"block": block, "type": poolTypes.classify(data), "file": made.name(file.number),
               "index": index, "offset": None if compress else 660 + 4104 * index}
              for file in made.files for index, (block, data) in enumerate(file.records)]
    assert found["records"] == wanted
    assert counts(found) == {"SBH Z32": 1, "BT leaf Z32": 23}


def test_people_get_a_table(tmp_path, golden):
    made = Set()
    damagedset.with_block(made, 2, b"")
    made.write(tmp_path)
    golden("list.txt", zsbtool.run("list", tmp_path).text)
    golden("list-records.txt", zsbtool.run("list", "--records", tmp_path).text)


@pytest.mark.parametrize("typed", ["BT leaf Z32", "bt LEAF z32", "LEAF"])
def test_blocks_of_one_type(tmp_path, typed):
    found = zsbtool.document("list", "--records", "--type", typed, Set().write(tmp_path))
    assert [row["block"] for row in found["records"]] == list(range(2, 25))
    assert counts(found) == {"BT leaf Z32": 23}


def test_blocks_of_no_known_type_are_called_user(tmp_path):
    made = Set()
    damagedset.with_block(made, 2, b"")
    found = zsbtool.document("list", "--records", "--type", "User", made.write(tmp_path))
    assert [row["block"] for row in found["records"]] == [18]


@pytest.mark.parametrize("typed, blocks", [
    ("7", [7]), ("5-8", [5, 6, 7, 8]), ("24-99", [24]), ("0-1", [1]), ("70-80", []),
    ("0-18446744073709551615", list(range(1, 25)))])
def test_a_range_of_blocks(tmp_path, typed, blocks):
    found = zsbtool.document("list", "--records", "--blocks", typed, Set().write(tmp_path))
    assert [row["block"] for row in found["records"]] == blocks
    assert sum(counts(found).values()) == len(blocks)


def test_type_and_range_go_together(tmp_path):
    Set().write(tmp_path)
    found = zsbtool.document("list", "--type", "LEAF", "--blocks", "1-3", tmp_path)
    assert counts(found) == {"BT leaf Z32": 2}


@pytest.mark.parametrize("options", [
    ("--type", "leafs"), ("--type", "MFL"), ("--blocks", "5-"), ("--blocks", "-5"),
    ("--blocks", "9-5"), ("--blocks", "x"), ("--blocks", "1-2-3"),
    ("--blocks", "18446744073709551616")])
def test_what_is_no_type_or_range_ends_with_1(tmp_path, options):
    shown = zsbtool.run("list", *options, Set().write(tmp_path))
    assert (shown.status, shown.text) == (1, "")


def test_a_magic_with_a_blank_is_one(tmp_path):
    made = Set()
    damagedset.with_block(made, 2, b"MFL ")
    found = zsbtool.document("list", "--type", "MFL ", made.write(tmp_path))
    assert counts(found) == {"MFL node": 1}


def test_files_that_cannot_be_read_to_their_end_are_named(tmp_path):
    made = Set(compress=True)
    made[0].damage.append(damagedset.cut_to(300))
    made[2].damage.append(lambda raw: raw[:-9])
    made.write(tmp_path)
    shown = zsbtool.run("list", "--json", tmp_path)
    assert shown.status == 2
    assert shown.err == ("zsbtool: C0000000.ZRB: it has no header of a scan file\n"
                         "zsbtool: C0000002.ZRB: it is cut short\n")
    listed = sum(counts(zsbtool.checked("list", shown.out)).values())
    assert listed == sum(file["records"] for file in zsbtool.checked(
        "check", zsbtool.run("check", "--json", tmp_path).out)["files"])


@pytest.mark.parametrize("jobs", ["1", "3"])
def test_the_result_does_not_depend_on_the_jobs(tmp_path, jobs):
    Set().write(tmp_path)
    assert zsbtool.run("list", "--jobs", jobs, tmp_path).text == zsbtool.run("list", tmp_path).text


def test_strays_are_not_listed(tmp_path):
    made = Set()
    made.files.append(damagedset.File(
        4, restoring.records([50]), {"flags": 2, "fileNumber": 4,
                                     "scanID": damagedset.OTHER_SCAN}))
    assert sum(counts(zsbtool.document("list", made.write(tmp_path))).values()) == 24


def test_a_reader_that_has_seen_enough_ends_a_long_list_silently(tmp_path):
    scanset.write_set(tmp_path, restoring.records(range(5000)))
    script = '"$0" list --records --json "$1" | head -c 100 >/dev/null; echo "${PIPESTATUS[0]}"'
    done = subprocess.run(["/bin/bash", "-c", script, zsbtool.program(), tmp_path],
                          capture_output=True, text=True, check=True)
    assert (done.stdout, done.stderr) == ("1\n", "")
