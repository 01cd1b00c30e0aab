"""`zsbtool cat`: the bytes of blocks."""

import subprocess

import pytest

import damagedset
import restoring
import scanset
import zsbtool
from damagedset import Set


def content(made, *numbers):
    blocks = {number: data for file in made.files for number, data in file.records}
    return b"".join(blocks[number] for number in numbers)


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
@pytest.mark.parametrize("typed, first, last", [("1", 1, 1), ("9", 9, 9), ("5-14", 5, 14), ("1-24", 1, 24)])
def test_blocks_come_as_they_were_saved(tmp_path, compress, typed, first, last):
    made = Set(compress=compress)
    shown = zsbtool.run("cat", made.write(tmp_path), typed)
    assert (shown.status, shown.err) == (0, "")
    assert shown.out == content(made, *range(first, last + 1))


def test_blocks_come_by_their_numbers_however_the_set_is_ordered(tmp_path):
    made = Set()
    for file in made.files:
        file.records.reverse()
    made[0].records, made[2].records = made[2].records, made[0].records
    shown = zsbtool.run("cat", made.write(tmp_path), "1-24")
    assert (shown.status, shown.out) == (0, content(made, *range(1, 25)))


def test_of_a_block_that_is_there_twice_comes_what_a_restore_leaves(tmp_path):
    made = Set()
    made[3].records.insert(0, (2, b"BRCH" + bytes(4092)))
    assert zsbtool.run("cat", made.write(tmp_path), "2").out == b"BRCH" + bytes(4092)


@pytest.mark.parametrize("typed, told, blocks", [
    ("77", ["block 77"], []),
    ("0-2", ["block 0"], [1, 2]),
    ("23-30", ["blocks 25 to 30"], [23, 24]),
    ("0-18446744073709551615", ["block 0", "blocks 25 to 18446744073709551615"], range(1, 25))])
def test_blocks_that_the_set_does_not_hold_are_named(tmp_path, typed, told, blocks):
    made = Set()
    shown = zsbtool.run("cat", made.write(tmp_path), typed)
    assert shown.status == 2
    assert shown.err.splitlines() == [f"zsbtool: the set does not hold {what}" for what in told]
    assert shown.out == content(made, *blocks)


def test_gaps_between_files_are_named(tmp_path):
    made = Set()
    made.drop(1)
    made[2].records.pop(1)
    shown = zsbtool.run("cat", made.write(tmp_path), "6-16")
    assert shown.status == 2
    assert shown.err == ("zsbtool: the set does not hold blocks 7 to 12\n"
                         "zsbtool: the set does not hold block 14\n")
    assert shown.out == content(made, 6, 13, 15, 16)


def test_the_highest_block_there_can_be_is_written(tmp_path):
    scanset.write_set(tmp_path, restoring.records([5]) + [(2**64 - 1, b"Z" * 4096)])
    shown = zsbtool.run("cat", tmp_path, f"6-{2**64 - 1}")
    assert (shown.status, shown.out) == (2, b"Z" * 4096)
    assert shown.err == f"zsbtool: the set does not hold blocks 6 to {2**64 - 2}\n"


def test_people_can_have_a_hex_dump(tmp_path, golden):
    made = Set()
    block = bytes(range(256)) + bytes(3840)
    made[0].records[1] = (2, block)
    shown = zsbtool.run("cat", "--hex", made.write(tmp_path), "1-2")
    assert shown.status == 0
    golden("cat-hex.txt", shown.text)


def test_files_that_cannot_be_read_to_their_end_are_named(tmp_path):
    made = Set(compress=True)
    made[2].damage.append(damagedset.cut_to(100))
    shown = zsbtool.run("cat", made.write(tmp_path), "3")
    assert (shown.status, shown.out) == (2, content(made, 3))
    assert shown.err == "zsbtool: C0000002.ZRB: it has no header of a scan file\n"


@pytest.mark.parametrize("typed", ["x", "9-5", "1-", "-1", "", "1-2-3"])
def test_what_is_no_range_of_blocks_ends_with_1(tmp_path, typed):
    shown = zsbtool.run("cat", Set().write(tmp_path), "--", typed)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.startswith("zsbtool: ")


def test_a_full_output_ends_with_1(tmp_path):
    Set().write(tmp_path)
    with open("/dev/full", "wb") as full:
        shown = zsbtool.run("cat", tmp_path, "1-24", stdout=full)
    assert (shown.status, shown.err) == (1, "zsbtool: standard output: No space left on device\n")


def test_a_reader_that_has_seen_enough_ends_it_silently(tmp_path):
    scanset.write_set(tmp_path, restoring.records(range(5000)))
    script = '"$0" cat "$1" 0-4999 | head -c 100 >/dev/null; echo "${PIPESTATUS[0]}"'
    done = subprocess.run(["/bin/bash", "-c", script, zsbtool.program(), tmp_path],
                          capture_output=True, text=True, check=True)
    assert (done.stdout, done.stderr) == ("1\n", "")
