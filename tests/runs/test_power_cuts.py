"""A disk that forgets, when its power is cut, any part of what was not synced: a restore that said 0 has
lost nothing, and one that was cut off is made good by the next."""

import os

import pytest

import powercut
import restoring
import scanset

BLOCKS = 600
RECORDS = restoring.records([number for number in range(BLOCKS) if number != 1])
WHAT = {"raw": False, "compressed": True}
CUTS = int(os.environ.get("OSTREL_KILLS", "4"))


@pytest.fixture(params=WHAT)
def folder(tmp_path, request):
    run = restoring.make_folder(tmp_path / "run")
    scanset.write_set(run / "set", RECORDS, per_file=100, compress=WHAT[request.param])
    return run


def lost(image):
    return [number for number, block in RECORDS if restoring.read_block(image, number) != block]


def write_unsynced(device):
    """What a program leaves in the disk that asks for nothing to be stored."""
    with open(device, "r+b", buffering=0) as file:
        for number, block in RECORDS:
            file.seek(number * restoring.BLOCK)
            file.write(block)


def test_the_disk_forgets_what_was_not_synced(fault_disk, tmp_path):
    image = restoring.target_image(tmp_path / "target", BLOCKS)
    with fault_disk(image, tmp_path / "mnt", "volatile") as disk:
        write_unsynced(disk.disk)
        assert lost(disk.disk) == []
        disk.command("cut 1")
    assert 0 < len(lost(image)) < len(RECORDS)


@pytest.mark.parametrize("cut", range(CUTS))
def test_a_restore_that_said_0_has_lost_nothing(fault_loop, folder, tmp_path, cut):
    image = restoring.target_image(tmp_path / "target", BLOCKS)
    with fault_loop(image, tmp_path / "mnt", "volatile") as (device, disk):
        run = restoring.restore(folder, device)
        assert (run.status, run.stderr) == (0, "")
        disk.command(f"cut {cut}")
    assert lost(image) == []


@pytest.mark.parametrize("cut", range(CUTS))
def test_a_restore_that_was_cut_off_is_made_good_by_the_next(fault_loop, folder, tmp_path, cut):
    image = restoring.target_image(tmp_path / "target", BLOCKS)
    [share] = powercut.moments(1, cut)
    with fault_loop(image, tmp_path / "mnt", "volatile", f"cutat={int(share * BLOCKS)}") as \
            (device, disk):
        assert restoring.restore(folder, device).status == 1
        assert "gone" in disk.faults()
    assert lost(image) != []
    with fault_loop(image, tmp_path / "again", "volatile") as (device, disk):
        run = restoring.restore(folder, device)
        assert (run.status, run.stderr) == (0, "")
        disk.command("cut 0")
    assert lost(image) == []
