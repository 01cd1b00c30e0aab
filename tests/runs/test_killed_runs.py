"""Runs that are killed in the middle. What was closed is whole, what was open reads as empty, and the
next run works as if nothing had been. OSTREL_KILLS says how often each kind of run is killed."""

import hashlib
import os

import pytest

import ostrelscan
import powercut
import restoring
import saving
import scanset

KILLS = int(os.environ.get("OSTREL_KILLS", "4"))
WHAT = {"raw": False, "compressed": True}
RECORDS = restoring.records(range(0, 3000, 3))


def empty(folder):
    for path in folder.iterdir():
        path.unlink()


@pytest.mark.parametrize("kind", WHAT)
def test_a_killed_save_leaves_whole_files_and_the_next_one_works(pool, tmp_path, kind):
    image = pool(size="24M", internal=0.9).path  # three files
    records = saving.expected(image)
    preload = ostrelscan.preload_environment()
    folder = tmp_path / "saved"
    folder.mkdir()
    arguments = powercut.save_arguments(image, WHAT[kind])
    whole = powercut.whole_work(arguments, folder, **preload)
    saving.assert_saved(folder, records)
    killed = 0
    for share in powercut.moments(KILLS, kind):
        empty(folder)
        killed += powercut.kill_at(share, whole, arguments, folder, **preload)
        powercut.assert_killed_set(folder, records, compress=WHAT[kind])
        with powercut.start(arguments, folder, **preload) as again:
            assert again.wait(powercut.HANG) == 0
        saving.assert_saved(folder, records)
    assert killed > 0


def digest(image):
    with open(image, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest()


@pytest.mark.parametrize("kind", WHAT)
def test_a_killed_restore_is_made_good_by_the_next_one(loop, tmp_path, kind):
    folder = restoring.make_folder(tmp_path / "run")
    scanset.write_set(folder / "set", RECORDS, per_file=300, compress=WHAT[kind])
    image = restoring.target_image(tmp_path / "target", 3000)
    with loop(image) as device:
        whole = powercut.whole_work(powercut.restore_arguments(device), folder)
        wanted = digest(device)
        killed = 0
        for share in powercut.moments(KILLS, kind):
            blank(device)
            killed += powercut.kill_at(share, whole, powercut.restore_arguments(device), folder)
            assert_old_or_new(device)
            with powercut.start(powercut.restore_arguments(device), folder) as again:
                assert again.wait(powercut.HANG) == 0
            assert digest(device) == wanted
    assert killed > 0


def blank(device):
    with open(device, "r+b") as file:
        for number in range(3000):
            file.write(restoring.SUPERBLOCK if number == 1 else restoring.FILLER)


def assert_old_or_new(device):
    """No block is torn, and none is touched that the set does not hold."""
    restored = dict(RECORDS)
    with open(device, "rb") as file:
        for number in range(3000):
            block = file.read(restoring.BLOCK)
            old = restoring.SUPERBLOCK if number == 1 else restoring.FILLER
            assert block in (old, restored.get(number, old)), number
