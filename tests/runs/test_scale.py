"""A pool of a size that none of the others has: OSTREL_SCALE=1T says which, and nothing is run without.
A sparse device whose internal blocks lie far apart is saved, in memory that does not grow, and the
screen counts right."""

import os
import pathlib
import random
import re
import time

import pytest

import loopdev
import saving

SIZE = os.environ.get("OSTREL_SCALE", "")
UNITS = {"G": 1 << 30, "T": 1 << 40}
PLANTED = 6000  # three files
MEGABYTE = 1 << 20
PROGRESS = re.compile(r"Blk (\d+)\((\d+) dumped\) in (\d+) mins \((\d+) blks/sec\)\.\s+"
                      r"(\d+)% done \((-?\d+) mins left\)\.  (\d+) ZSB files will be created\.")

pytestmark = pytest.mark.skipif(not SIZE, reason="takes long: OSTREL_SCALE=1T")


@pytest.fixture
def blocks():
    return int(SIZE[:-1]) * UNITS[SIZE[-1]] // loopdev.BLOCK_BYTES


@pytest.fixture
def image(tmp_path, blocks):
    numbers = random.Random(1).sample(range(2, blocks - 1), PLANTED - 2)
    return saving.image_of(tmp_path / "image", blocks, {
        1: b"SPB5", **dict.fromkeys(numbers, b"BRCH"), blocks - 1: b"BRCH"})


def resident(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii")
    return int(re.search(r"VmRSS:\s+(\d+) kB", status)[1]) * 1024


def shown(picture):
    """The figures of the progress display, as soon as they are there."""
    found = PROGRESS.search(" ".join(picture.text.split("\n")))
    return tuple(map(int, found.groups())) if found else None


def assert_right(figures, blocks):
    """The figures of one moment fit each other, in numbers that no width cuts off."""
    if figures is not None:
        current, done, _, _, percent, _, files = figures
        assert current <= blocks and done <= PLANTED
        assert percent == 100 - (blocks - current) * 100 // blocks
        assert files == (100000 // (percent + 1) * done + 2559) // 2560000 + 1


def test_a_huge_pool_is_saved_in_memory_that_does_not_grow(loop, image, blocks, tmp_path):
    started = time.monotonic()
    with loop(image, read_only=True) as device, \
            saving.on_screen(device, tmp_path, wait=False) as terminal:
        terminal.wait_for(lambda picture: (shown(picture) or [0])[0] > 0)
        sizes = [resident(terminal.child.pid)]
        while terminal.pump(2.0):
            assert_right(shown(terminal.now()), blocks)
            sizes.append(resident(terminal.child.pid) if terminal.child.isalive() else sizes[-1])
        assert terminal.wait_exit(60) == 0
        last = shown(terminal.last_full())
    print(f"{SIZE}: {time.monotonic() - started:.0f} s; at most {max(sizes) // 1024} KiB, "
          f"{(max(sizes) - sizes[0]) // 1024} KiB more than at the start; at its end {last}")
    assert_right(last, blocks)
    current, done, _, _, percent, left, _ = last
    assert (current, done, percent, left) == (blocks, PLANTED, 100, 0)
    assert max(sizes) - sizes[0] < MEGABYTE and max(sizes) < 64 * MEGABYTE
    files = saving.scanset.read_set(tmp_path)
    assert [file.problems for file in files] == [[]] * 3
    saved = [number for file in files for number, _ in file.records]
    assert saved == sorted(set(saved)) and len(saved) == PLANTED
    assert (saved[0], saved[-1]) == (1, blocks - 1)
