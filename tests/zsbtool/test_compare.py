"""`zsbtool compare`: a set against an image, a device or another set."""

import os

import pytest

import damagedset
import poolTypes
import restoring
import saving
import scanset
import zsbtool
from damagedset import POOL_BLOCKS, Set


def image_of(made, path, blocks=POOL_BLOCKS, fill=b"\xee"):
    """An image that holds what the set holds, and something else elsewhere."""
    held = {number: data for file in made.files for number, data in file.records}
    path.write_bytes(b"".join(held.get(number, fill * 4096) for number in range(blocks)))
    return path


def overwrite(path, block, data):
    with open(path, "r+b") as image:
        image.seek(4096 * block)
        image.write(data)


def numbers(rows):
    return [row["block"] for row in rows]


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_what_the_set_does_not_hold_does_not_count(tmp_path, compress):
    made = Set(compress=compress)
    made.write(tmp_path / "set")
    found = zsbtool.document("compare", tmp_path / "set", image_of(made, tmp_path / "pool.img"))
    assert (found["differ"], found["missing"]) == ([], [])


def test_blocks_that_differ_are_named_with_their_types(tmp_path):
    made = Set()
    image = image_of(made, tmp_path / "pool.img")
    overwrite(image, 1, b"SPB6")
    overwrite(image, 25, b"does not count")
    with open(image, "r+b") as file:
        file.seek(4096 * 18 + 4095)
        file.write(b"\xff")
    found = zsbtool.document("compare", made.write(tmp_path / "set"), image, status=2)
    assert found["differ"] == [{"block": 1, "type": "SBH Z32"},
                               {"block": 18, "type": "BT leaf Z32"}]
    assert found["missing"] == []


def test_blocks_behind_the_end_of_the_image_are_missing(tmp_path):
    made = Set()
    image = image_of(made, tmp_path / "pool.img")
    os.truncate(image, 4096 * 23 + 4095)
    found = zsbtool.document("compare", made.write(tmp_path / "set"), image, status=2)
    assert (found["differ"], numbers(found["missing"])) == ([], [23, 24])


def test_blocks_far_behind_every_end_are_missing(tmp_path):
    made = Set()
    made.renumber(3, 2**64 - 1)
    image = image_of(Set(), tmp_path / "pool.img")
    found = zsbtool.document("compare", made.write(tmp_path / "set"), image, status=2)
    assert numbers(found["missing"]) == [2**64 - 1]


@pytest.mark.parametrize("compress", [False, True], ids=["to raw", "to compressed"])
def test_sets_of_another_form_are_the_same(tmp_path, compress):
    Set().write(tmp_path / "one")
    scanset_other = tmp_path / "other"
    scanset_other.mkdir()
    records = [record for file in Set().files for record in file.records]
    scanset.write_set(scanset_other, records, per_file=5, compress=compress)
    zsbtool.document("compare", tmp_path / "one", scanset_other)
    zsbtool.document("compare", scanset_other, tmp_path / "one" / "T0000000.ZRB")


def test_between_sets_both_sides_count(tmp_path):
    one, other = Set(), Set()
    one.drop(0)
    other[1].records[2] = (9, b"BRCH" + bytes(4092))
    other[3].records.pop()
    other[3].records.append((77, b"MFL " + bytes(4092)))
    one.write(tmp_path / "one")
    other.write(tmp_path / "other")
    found = zsbtool.document("compare", tmp_path / "one", tmp_path / "other", status=2)
    assert found["differ"] == [{"block": 9, "type": "BT leaf Z32"}]
    assert numbers(found["missing"]) == [1, 2, 3, 4, 5, 6, 24, 77]
    assert found["missing"][-1]["type"] == "MFL node"
    back = zsbtool.document("compare", tmp_path / "other", tmp_path / "one", status=2)
    assert back["differ"] == [{"block": 9, "type": "BT branch"}]
    assert back["missing"] == found["missing"]


def test_the_order_of_a_set_does_not_count(tmp_path):
    one, other = Set(), Set(compress=True)
    for file in other.files:
        file.records.reverse()
    other[0].records, other[2].records = other[2].records, other[0].records
    zsbtool.document("compare", one.write(tmp_path / "one"), other.write(tmp_path / "other"))


def test_of_a_block_that_is_there_twice_counts_what_a_restore_leaves(tmp_path):
    made = Set()
    image = image_of(made, tmp_path / "pool.img")
    made[0].records[1:1] = [(9, b"BRCH" + bytes(4092))]
    zsbtool.document("compare", made.write(tmp_path / "first"), image)
    made[3].records.append((9, b"BRCH" + bytes(4092)))
    found = zsbtool.document("compare", made.write(tmp_path / "last"), image, status=2)
    assert found["differ"] == [{"block": 9, "type": "BT branch"}]


@pytest.mark.parametrize("options, left", [
    ((), [2, 3, 18]), (("--as-restored",), [2]), (("--as-restored", "-a"), [2, 18])])
def test_what_a_restore_does_not_write_can_be_left_out(tmp_path, options, left):
    made = Set()
    damagedset.with_block(made, 2, b"")  # a user block, 18
    made[0].records[2] = (3, b"PASM" + bytes(4092))
    image = image_of(made, tmp_path / "pool.img")
    for block in (2, 3, 18):
        overwrite(image, block, b"else")
    found = zsbtool.document("compare", *options, made.write(tmp_path / "set"), image, status=2)
    assert numbers(found["differ"]) == left


def test_a_saved_pool_is_that_pool(pool, tmp_path):
    pool(size="16M").copy_to(tmp_path / "pool.img")
    assert saving.save("pool.img", tmp_path, "-a", preload=True).status == 0
    found = zsbtool.document("compare", tmp_path, tmp_path / "pool.img")
    assert found["differ"] == []
    held = {number for number, _ in scanset.set_records(tmp_path)}
    block = max(held)
    overwrite(tmp_path / "pool.img", block, b"\x01\x02\x03\x04\x05\x06\x07\x08")
    found = zsbtool.document("compare", tmp_path, tmp_path / "pool.img", status=2)
    kinds = {number: poolTypes.classify(data) for number, data in scanset.set_records(tmp_path)}
    assert found["differ"] == [{"block": block, "type": kinds[block]}]


@pytest.mark.parametrize("jobs", [1, 2, 7])
def test_the_result_does_not_depend_on_the_jobs(tmp_path, jobs):
    one, other = Set(compress=True), Set()
    other[1].records[2] = (9, bytes(4096))
    other.drop(2)
    one.write(tmp_path / "one")
    other.write(tmp_path / "other")
    shown = zsbtool.run("compare", "--jobs", jobs, tmp_path / "one", tmp_path / "other")
    assert shown.status == 2
    assert shown.text == zsbtool.run("compare", tmp_path / "one", tmp_path / "other").text


def test_people_get_lines_and_a_sum(tmp_path, golden):
    made = Set()
    image = image_of(made, tmp_path / "pool.img")
    overwrite(image, 9, b"else")
    os.truncate(image, 4096 * 24)
    shown = zsbtool.run("compare", made.write(tmp_path / "set"), image)
    assert (shown.status, shown.err) == (2, "")
    golden("compare.txt", shown.text)
    golden("compare.json", zsbtool.run("compare", "--json", tmp_path / "set", image).text)


def test_files_that_cannot_be_read_to_their_end_are_named(tmp_path):
    made = Set(compress=True)
    image = image_of(made, tmp_path / "pool.img")
    made[2].damage.append(damagedset.cut_to(100))
    shown = zsbtool.run("compare", "--json", made.write(tmp_path / "set"), image)
    assert shown.status == 2
    assert shown.err == "zsbtool: C0000002.ZRB: it has no header of a scan file\n"
    assert zsbtool.checked("compare", shown.out)["differ"] == []


def test_a_block_that_a_device_refuses_is_missing_and_named(fault_loop, tmp_path):
    made = Set()
    image = image_of(made, tmp_path / "pool.img", blocks=128)
    made.write(tmp_path / "set")
    with fault_loop(image, tmp_path / "mnt", "badread=16") as (device, _):
        shown = zsbtool.run("compare", "--json", tmp_path / "set", device)
    assert shown.status == 2
    found = zsbtool.checked("compare", shown.out)
    assert 16 in numbers(found["missing"]) and found["differ"] == []
    assert "zsbtool: block 16 of the device cannot be read\n" in shown.err


@pytest.mark.parametrize("what", ["nothing", "fifo", "/dev/null"])
def test_what_is_neither_device_nor_image_nor_set_ends_with_1(tmp_path, what):
    Set().write(tmp_path / "set")
    os.mkfifo(tmp_path / "fifo")
    shown = zsbtool.run("compare", tmp_path / "set", tmp_path / what)
    assert (shown.status, shown.text) == (1, "")
    assert str(tmp_path / what) in shown.err


def test_a_without_as_restored_is_no_command_line(tmp_path):
    shown = zsbtool.run("compare", "-a", Set().write(tmp_path), tmp_path)
    assert (shown.status, shown.text) == (1, "")


@zsbtool.needs_no_file_of_the_sanitizers()
def test_without_room_for_what_differs_it_ends_with_1(tmp_path):
    one, other = Set(), Set()
    other.drop(1)
    one.write(tmp_path / "one")
    other.write(tmp_path / "other")
    script = 'ulimit -f 0; exec "$@"'
    shown = zsbtool.run("compare", tmp_path / "one", tmp_path / "other",
                        before=("/bin/sh", "-c", script, "sh"))
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == "zsbtool: a temporary file: File too large\n"


def test_an_empty_set_has_nothing_that_differs(tmp_path):
    scanset.write_set(tmp_path, [])
    (tmp_path / "pool.img").write_bytes(restoring.EMPTY)
    assert zsbtool.document("compare", tmp_path, tmp_path / "pool.img")["differ"] == []
    assert zsbtool.document("compare", tmp_path, tmp_path)["missing"] == []
