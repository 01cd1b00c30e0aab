"""Pools with blocks that cannot be read: only those are missing from the save."""

import os
import re
import signal
import time

import pytest

import ostrelscan
import poolTypes
import saving
import scanset
import screen

ONE_BAD_BLOCK_EACH = [5, 70, 71, 300, 1023, 2048, 3999]
EIO = "22ba5005"


def tracked(run):
    """The blocks that the log names, each with its status: [(block, status)]."""
    found = re.findall(
        r"^TrackReadErrorStats\n"
        r"  Read error recorded from util/ostrelscan/scanEngine\[\d+\]  Block - ([0-9a-f]+) "
        r"Status - ([0-9a-f]+)$", run.log, re.MULTILINE)
    return [(int(block, 16), status) for block, status in found]


def assert_only_missing(run, image, bad, **what):
    """Exactly the bad blocks are missing, and each was tracked once."""
    saving.assert_saved(run.folder, saving.expected(image, bad=bad, **what))
    assert tracked(run) == [(number, EIO) for number in sorted(bad)]
    assert run.log.count("TrackReadErrorStats") == len(bad)


def ranges(blocks):
    return "badread=" + ",".join(map(str, blocks))


@pytest.fixture
def image(pool, tmp_path):
    return pool(size="16M").copy_to(tmp_path / "image")


@pytest.mark.parametrize("bad", [
    ONE_BAD_BLOCK_EACH, [0], [4095], [0, 2, 4095], [63, 64, 127, 128], list(range(100, 400)),
    [*range(10, 74), 80, *range(90, 4096, 97)]],
    ids=["scattered", "first", "last", "ends", "borders", "adjacent", "many"])
@pytest.mark.parametrize("options", [(), ("-a",)], ids=["selected", "all"])
def test_exactly_the_bad_blocks_are_missing(fault_loop, image, tmp_path, bad, options):
    with fault_loop(image, tmp_path / "mnt", ranges(bad)) as (device, _):
        run = saving.save(device, tmp_path, *options, timeout=200)
    assert (run.status, run.stderr) == (0, "")
    assert_only_missing(run, image, bad, all_blocks="-a" in options)


def test_bad_blocks_are_missing_from_compressed_files_too(fault_loop, image, tmp_path):
    bad = [*ONE_BAD_BLOCK_EACH, *range(500, 600)]
    with fault_loop(image, tmp_path / "mnt", ranges(bad)) as (device, _):
        run = saving.save(device, tmp_path, "-c")
    assert run.status == 0
    assert_only_missing(run, image, bad)


def test_bad_blocks_show_as_a_count_on_the_screen_and_in_the_table(fault_loop, image, tmp_path):
    bad = ONE_BAD_BLOCK_EACH
    with fault_loop(image, tmp_path / "mnt", ranges(bad)) as (device, _), \
            saving.on_screen(device, tmp_path) as terminal:
        picture = terminal.wait_for("Press any key", timeout=60)
        terminal.send("x")
        assert terminal.wait_exit(60) == 0
    assert picture.rows[3].rstrip() == f"Pool read errors {len(bad)}"
    shown = [int(count) for row in picture.rows[5:19]
             for count in re.findall(r"[-+] +(\d+)", row)]
    assert sum(shown) == 4096 - len(bad)


def test_a_bad_superblock_fails_the_check(fault_loop, image, tmp_path):
    with fault_loop(image, tmp_path / "mnt", "badread=1") as (device, _):
        run = saving.save(device, tmp_path)
    assert run.status == 1
    assert ("OSTREL Pool superblock header validation error:  Pool's superblock did not validate "
            "(ensure that the correct device was given)") in run.log_run.lines
    assert tracked(run) == []
    assert not list(tmp_path.glob("*.ZSB"))


def test_a_bad_superblock_is_one_bad_block_where_it_is_not_checked(fault_loop, image, tmp_path):
    with fault_loop(image, tmp_path / "mnt", "badread=1") as (device, _):
        run = saving.save(device, tmp_path, "--validation-skip")
    assert run.status == 0
    assert_only_missing(run, image, [1], validated=False)


def test_neighbours_of_the_superblock_do_not_take_it_along(fault_loop, image, tmp_path):
    with fault_loop(image, tmp_path / "mnt", "badread=0,2-9") as (device, _):
        run = saving.save(device, tmp_path)
    assert run.status == 0
    assert_only_missing(run, image, [0, *range(2, 10)])


def test_a_device_that_fails_behind_its_superblock_is_read_to_its_end(fault_loop, image, tmp_path):
    with fault_loop(image, tmp_path / "mnt", "badread=0,2-4095") as (device, _):
        run = saving.save(device, tmp_path, timeout=300)
    assert run.status == 0
    file, = saving.assert_saved(tmp_path, saving.expected(image)[:1])
    assert file.header["flags"] == 0x202
    assert run.log.count("TrackReadErrorStats\n") == 4095
    assert [block for block, _ in tracked(run)] == [0, *range(2, 1000)]


def run_until_saved(device, folder, *options):
    """Starts a save, stops it in its tracks as soon as records arrive; returns the process."""
    argv = [ostrelscan.tool(), "--automatic", *saving.arguments(device, *options)]
    terminal = screen.Terminal(argv, cwd=folder)
    first = folder / "T0000000.ZSB"
    until = time.monotonic() + 60
    while not first.exists() or first.stat().st_size < 100_000:
        assert time.monotonic() < until and terminal.child.isalive()
    os.kill(terminal.child.pid, signal.SIGSTOP)
    return terminal


def test_a_device_that_goes_away_in_the_middle_is_read_to_its_end(pool, fault_loop, tmp_path):
    made = pool(size="64M")
    image = made.copy_to(tmp_path / "image")
    with fault_loop(image, tmp_path / "mnt") as (device, disk):
        with run_until_saved(device, tmp_path, "-a") as terminal:
            disk.command("gone")
            os.kill(terminal.child.pid, signal.SIGCONT)
            assert terminal.wait_exit(300) == 0
        disk.command("clear")
    run = ostrelscan.split_log((tmp_path / ostrelscan.LOG_NAME).read_text())[-1]
    assert run.closed
    errors = run.lines.count("TrackReadErrorStats")
    assert errors > 0, "the run was over before the device was gone"
    files = scanset.read_set(tmp_path)
    assert [file.problems for file in files] == [[]] * len(files)
    saved = [record for file in files for record in file.records]
    numbers = [number for number, _ in saved]
    assert numbers == sorted(set(numbers))
    content = dict(poolTypes.blocks(image))
    assert all(content[number] == block for number, block in saved)
    selected = {number for number, _ in saving.expected(image, all_blocks=True)}
    lost = selected - set(numbers)
    leaves = made.types["BT leaf Z64"]
    assert errors - leaves <= len(lost) <= errors
    details = sum(line.startswith("  Read error recorded from ") for line in run.lines)
    assert details == min(errors, 999)


def test_what_came_before_a_bad_stretch_is_not_read_again(fault_loop, image, tmp_path):
    with fault_loop(image, tmp_path / "mnt", "badread=700") as (device, disk):
        saving.save(device, tmp_path)
        requests, failed = disk.counts()["reads"]
    assert 1 <= failed <= 10
    assert requests < 4096 / 16 + 200
