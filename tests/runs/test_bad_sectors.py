"""Devices with very many bad blocks, with errors that come and go, and devices that are slow: every
block that can be read is saved, each other is counted once, and nothing is asked for without end."""

import os
import random
import time

import pytest

import saving
from test_bad_blocks import assert_only_missing, ranges

BLOCKS = 16384  # of the pool that these tests take
STRETCH = 64    # blocks of bad ground for which one request may be repeated
LONG = "OSTREL_LONG" in os.environ


@pytest.fixture
def image(pool, tmp_path):
    return pool(size="64M").copy_to(tmp_path / "image")


def scattered(count):
    return sorted(random.Random(count).sample([n for n in range(BLOCKS) if n != 1], count))


def stretches(bad):
    return len({number // STRETCH for number in bad})


@pytest.mark.parametrize("bad", [list(range(0, BLOCKS, 2)), scattered(5000)],
                         ids=["every second", "5000 scattered"])
def test_everything_between_very_many_bad_blocks_is_saved(fault_loop, image, tmp_path, bad):
    with fault_loop(image, tmp_path / "mnt", ranges(bad)) as (device, disk):
        run = saving.save(device, tmp_path, timeout=500)
        _, failed = disk.counts()["reads"]
    assert run.status == 0
    saving.assert_saved(run.folder, saving.expected(image, bad=set(bad)))
    assert run.log.count("TrackReadErrorStats\n") == len(bad)
    assert len(bad) <= failed <= len(bad) + stretches(bad)


def test_errors_that_go_away_when_asked_again_cost_no_block(fault_loop, image, tmp_path):
    bad = [5, 700, *range(900, 930), 4000]
    with fault_loop(image, tmp_path / "mnt", ranges(bad), "flaky=1") as (device, _):
        run = saving.save(device, tmp_path)
    assert run.status == 0
    saving.assert_saved(run.folder, saving.expected(image))
    assert run.log.count("TrackReadErrorStats\n") == 0


def test_errors_that_come_and_go_cost_no_more_blocks_than_they_hit(fault_loop, image, tmp_path):
    bad = scattered(200)
    with fault_loop(image, tmp_path / "mnt", ranges(bad), "flaky=3") as (device, _):
        run = saving.save(device, tmp_path)
    assert run.status == 0
    lost = run.log.count("TrackReadErrorStats\n")
    files = saving.scanset.read_set(tmp_path)
    assert [file.problems for file in files] == [[]] * len(files)
    saved = {number for file in files for number, _ in file.records}
    missing = {number for number, _ in saving.expected(image)} - saved
    assert missing <= set(bad) and len(missing) <= lost <= len(bad)


def test_a_device_that_becomes_slower_and_slower_is_saved_whole(fault_loop, image, tmp_path):
    with fault_loop(image, tmp_path / "mnt", "slowing=20", ranges([77, 900])) as (device, _):
        run = saving.save(device, tmp_path, timeout=500)
    assert run.status == 0
    assert_only_missing(run, image, [77, 900])


@pytest.mark.skipif(not LONG, reason="takes minutes: OSTREL_LONG=1")
def test_what_5000_bad_blocks_cost_that_answer_after_50_milliseconds(fault_loop, image, tmp_path):
    bad = scattered(5000)
    with fault_loop(image, tmp_path / "mnt", ranges(bad), "delay=50") as (device, disk):
        started = time.monotonic()
        run = saving.save(device, tmp_path, timeout=3000)
        seconds = time.monotonic() - started
        _, failed = disk.counts()["reads"]
    assert run.status == 0
    saving.assert_saved(run.folder, saving.expected(image, bad=set(bad)))
    print(f"{seconds:.0f} s; {failed} failed requests, {stretches(bad)} stretches")
    assert failed <= len(bad) + stretches(bad)
