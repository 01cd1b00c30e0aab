"""`zsbtool image`: the pool of a set as a sparse image."""

import os
import signal

import pytest

import restoring
import scanset
import zsbtool
from damagedset import FAULTS, POOL_BLOCKS, Set


def wanted(made, blocks=POOL_BLOCKS):
    held = {number: data for file in made.files for number, data in file.records}
    return b"".join(held.get(number, bytes(4096)) for number in range(blocks))


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_every_block_stands_at_its_place(tmp_path, compress):
    made = Set(compress=compress)
    shown = zsbtool.run("image", made.write(tmp_path / "set"), "-o", tmp_path / "pool.img")
    assert (shown.status, shown.err) == (0, "")
    assert shown.text == f"{tmp_path}/pool.img: 400.0 KiB, 24 blocks of 100\n"
    assert (tmp_path / "pool.img").read_bytes() == wanted(made)
    assert sorted(path.name for path in tmp_path.iterdir()) == ["pool.img", "set"]


def test_what_the_set_does_not_hold_is_a_hole(tmp_path):
    blocks = 1 << 20
    records = restoring.records([1, 2, 3, 500_000, blocks - 1])
    records[2] = (3, bytes(4096))
    scanset.write_set(tmp_path, records, poolBlocks=blocks)
    assert zsbtool.run("image", tmp_path, "-o", tmp_path / "pool.img").status == 0
    facts = os.stat(tmp_path / "pool.img")
    assert facts.st_size == blocks * 4096
    assert facts.st_blocks * 512 <= 64 * 1024
    for number, data in records:
        assert restoring.read_block(tmp_path / "pool.img", number) == data
    assert restoring.read_block(tmp_path / "pool.img", 499_999) == bytes(4096)


def test_long_runs_come_as_they_were_saved(tmp_path):
    records = restoring.records(range(3000))
    scanset.write_set(tmp_path, records, poolBlocks=3000)
    assert zsbtool.run("image", tmp_path, "-o", tmp_path / "pool.img").status == 0
    assert (tmp_path / "pool.img").read_bytes() == b"".join(data for _, data in records)


@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.name)
def test_of_a_set_with_problems_nothing_is_made(tmp_path, fault):
    made = Set(compress=fault.kinds == (True,))
    fault.plant(made)
    made.write(tmp_path / "set")
    shown = zsbtool.run("image", tmp_path / "set", "-o", tmp_path / "pool.img")
    assert (shown.status, shown.err) == (2, "")
    assert "not restorable: 1 problem\nnothing was made" in shown.text
    assert [path.name for path in tmp_path.iterdir()] == ["set"]


def test_force_makes_what_can_be_made(tmp_path):
    made = Set()
    made.drop(1)
    shown = zsbtool.run("image", "--force", made.write(tmp_path / "set"), "-o",
                        tmp_path / "pool.img")
    assert (shown.status, shown.err) == (2, "")
    assert shown.text.splitlines()[-2:] == [
        "not restorable: 1 problem", f"{tmp_path}/pool.img: 400.0 KiB, 18 blocks of 100"]
    assert (tmp_path / "pool.img").read_bytes() == wanted(made)


@pytest.mark.parametrize("jobs", [1, 4])
def test_by_force_the_last_of_blocks_that_are_there_twice_stays(tmp_path, jobs):
    made = Set()
    made[0].records.append((20, b"BRCH" + bytes(4092)))
    made[2].records.append((2, bytes(4096)))
    made[3].records.insert(0, (3, b"BRCH" + bytes(4092)))
    made.write(tmp_path / "set")
    shown = zsbtool.run("image", "--force", "--jobs", jobs, tmp_path / "set", "-o",
                        tmp_path / "pool.img")
    assert shown.status == 2
    assert (tmp_path / "pool.img").read_bytes() == wanted(made)


def test_by_force_blocks_behind_the_end_are_left_out(tmp_path):
    made = Set()
    made.renumber(2, 2**64 - 1)
    made.renumber(3, POOL_BLOCKS)
    shown = zsbtool.run("image", "--force", made.write(tmp_path / "set"), "-o",
                        tmp_path / "pool.img")
    assert shown.status == 2
    assert "22 blocks of 100" in shown.text
    assert (tmp_path / "pool.img").read_bytes() == wanted(made)


def test_without_a_size_there_is_no_image_by_force(tmp_path):
    (tmp_path / "set").mkdir()
    (tmp_path / "set" / "T0000000.ZSB").write_bytes(b"")
    shown = zsbtool.run("image", tmp_path / "set", "-o", tmp_path / "pool.img")
    assert shown.status == 2
    shown = zsbtool.run("image", "--force", tmp_path / "set", "-o", tmp_path / "pool.img")
    assert (shown.status, shown.text) == (1, "")
    assert [path.name for path in tmp_path.iterdir()] == ["set"]


@pytest.mark.parametrize("blocks", [2**52, 2**64 - 1])
def test_a_pool_that_no_file_can_be_ends_with_1(tmp_path, blocks):
    scanset.write_set(tmp_path, restoring.records([1]), poolBlocks=blocks)
    shown = zsbtool.run("image", tmp_path, "-o", tmp_path / "pool.img")
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {tmp_path}/pool.img: File too large\n"


def test_an_image_of_before_is_replaced_only_by_a_whole_one(tmp_path):
    made = Set()
    (tmp_path / "pool.img").write_bytes(b"of before")
    made.set_flag(1, 0x008)
    assert zsbtool.run("image", made.write(tmp_path / "bad"), "-o",
                       tmp_path / "pool.img").status == 2
    assert (tmp_path / "pool.img").read_bytes() == b"of before"
    assert zsbtool.run("image", Set().write(tmp_path / "good"), "-o",
                       tmp_path / "pool.img").status == 0
    assert (tmp_path / "pool.img").read_bytes() == wanted(Set())


def test_what_is_no_regular_file_is_refused(tmp_path):
    Set().write(tmp_path / "set")
    os.mkfifo(tmp_path / "fifo")
    for output in ("/dev/null", tmp_path / "fifo", tmp_path / "set"):
        shown = zsbtool.run("image", tmp_path / "set", "-o", output)
        assert (shown.status, shown.text) == (1, "")
        assert "no regular file" in shown.err


@pytest.mark.parametrize("limit", [pytest.param(0, marks=zsbtool.needs_no_file_of_the_sanitizers()),
                                   3])
def test_without_room_nothing_is_left(tmp_path, limit):
    """The limit on a file's size stands in for a full file system; it counts half KiBs."""
    scanset.write_set(tmp_path, restoring.records(range(100)), poolBlocks=100)
    before = sorted(path.name for path in tmp_path.iterdir())
    shown = zsbtool.run("image", tmp_path, "-o", tmp_path / "pool.img",
                        before=("/bin/sh", "-c", f'ulimit -f {limit}; exec "$@"', "sh"))
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {tmp_path}/pool.img: File too large\n"
    assert sorted(path.name for path in tmp_path.iterdir()) == before


def test_a_signal_leaves_no_half_made_image(tmp_path):
    folder = Set().write(tmp_path / "set")
    shown = zsbtool.signalled(signal.SIGTERM, "image", folder, "-o", tmp_path / "pool.img")
    assert (shown.status, shown.text) == (-signal.SIGTERM, "")
    assert list(tmp_path.iterdir()) == [folder]


def test_a_last_file_without_records_makes_an_image_of_holes(tmp_path):
    scanset.write_set(tmp_path, [], poolBlocks=10)
    shown = zsbtool.run("image", tmp_path, "-o", tmp_path / "pool.img")
    assert (shown.status, shown.text) == (0, f"{tmp_path}/pool.img: 40.0 KiB, 0 blocks of 10\n")
    assert (tmp_path / "pool.img").read_bytes() == bytes(40960)


def test_a_name_may_be_of_any_letters(tmp_path):
    folder = Set().write(tmp_path / "säts" / "中文")
    shown = zsbtool.run("image", folder, "-o", tmp_path / "bïld.img")
    assert shown.status == 0
    assert (tmp_path / "bïld.img").read_bytes() == wanted(Set())
