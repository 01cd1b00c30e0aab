"""What the log says of a device's reads beyond its errors: that it failed and answered when asked
again, and how many details were left out."""

import re

import pytest

import ostrelscan
import restoring
import saving
import scanset
from test_bad_blocks import EIO, tracked

RECOVERED = ("Note: device reads that failed although every block could then be read by itself: "
             "{count}, the first at block {first:x}")
OMITTED = "Note: unreadable blocks whose details were left out: {}"


def notes(run):
    return [line for line in run.log_run.lines if line.startswith("Note: ")]


def answering(image, lost=()):
    """The environment of a run whose device answers whoever reads one block, but for these."""
    return ostrelscan.preload("libalonereads.so", ALONE_IMAGE=str(image),
                              ALONE_LOST="".join(f",{number}," for number in lost))


@pytest.fixture
def dying(fault_loop, pool, tmp_path):
    """A save of a device on which these ranges of blocks fail, though each block but the lost ones
    can be read by itself: returns the run and the image."""
    def save(bad, *options, lost=(), image=None):
        image = image or pool(size="16M").copy_to(tmp_path / "image")
        with fault_loop(image, tmp_path / "mnt", f"badread={bad}") as (device, _):
            return saving.save(device, tmp_path, *options, timeout=200,
                               env=answering(image, lost)), image
    return save


# The kernel reads up to 512 blocks at once, and whole it fails: what is told of a range that begins
# and ends with such a piece does not depend on how the kernel cuts it.


@pytest.mark.parametrize("bad, count, first", [
    ("512-1023", 4, 512), ("1024-1535,2560-3583", 12, 1024), ("3584-4095", 4, 3584)],
    ids=["one piece", "three pieces", "at the end"])
@pytest.mark.parametrize("options", [(), ("-c",)], ids=["raw", "compressed"])
def test_a_device_that_answers_when_asked_again_is_noted(dying, tmp_path, bad, count, first,
                                                         options):
    run, image = dying(bad, *options)
    assert (run.status, tracked(run)) == (0, [])
    saving.assert_saved(tmp_path, saving.expected(image))
    assert notes(run) == [RECOVERED.format(count=count, first=first)]
    lines = run.log_run.lines
    assert lines.index(notes(run)[0]) == lines.index("In RunDumpMain(exit)") + 1


def test_where_the_middle_of_a_read_failed_the_note_tells_a_block_of_it(dying):
    run, _ = dying("1000")
    note, = notes(run)
    found = re.fullmatch(RECOVERED.format(count=r"(\d+)", first=0)[:-1] + "([0-9a-f]+)", note)
    assert int(found[1]) >= 1
    assert 512 <= int(found[2], 16) <= 1000


@pytest.mark.parametrize("lost", [512, 700, 1023])
def test_reads_that_lost_a_block_are_not_noted(dying, tmp_path, lost):
    run, image = dying("512-1023", lost=[lost])
    assert tracked(run) == [(lost, EIO)]
    assert notes(run) == []
    saving.assert_saved(tmp_path, saving.expected(image, bad=[lost]))


def test_reads_that_lost_no_block_are_noted_beside_others_that_did(dying):
    run, _ = dying("512-1023,2048-2559,3584-4095", lost=[600])
    assert tracked(run) == [(600, EIO)]
    assert notes(run) == [RECOVERED.format(count=8, first=2048)]


@pytest.mark.parametrize("bad", [[5, 70, 960], [0], [4032], [2047, 2048]])
def test_bad_blocks_alone_are_not_noted(fault_loop, pool, tmp_path, bad):
    image = pool(size="16M").copy_to(tmp_path / "image")
    faults = "badread=" + ",".join(map(str, bad))
    with fault_loop(image, tmp_path / "mnt", faults) as (device, _):
        run = saving.save(device, tmp_path)
    assert tracked(run) == [(number, EIO) for number in bad]
    assert notes(run) == []


def test_the_last_read_ends_with_the_device(dying, tmp_path):
    run, _ = dying("512-599", image=saving.run_of(tmp_path / "image", 600, 599))
    assert run.status == 0
    assert notes(run) == [RECOVERED.format(count=1, first=512)]


def test_a_failed_read_of_the_superblock_check_is_noted(dying, tmp_path):
    run, image = dying("0-511")
    assert run.status == 0
    saving.assert_saved(tmp_path, saving.expected(image))
    assert notes(run) == [RECOVERED.format(count=4, first=0)]


def test_a_check_that_ends_the_pass_tried_too_little_for_a_note(dying, tmp_path):
    run, _ = dying("0-127", image=saving.image_of(tmp_path / "image", 128, {1: b"SPB4"}))
    assert run.status == 1
    assert notes(run) == []


def test_a_save_that_ends_in_the_middle_of_a_failed_read_has_no_note_of_it(dying, tmpfs, tmp_path):
    with tmpfs("size=128k") as folder:
        run, _ = dying("0-511", "-a", "-P", str(folder))
    assert run.status == 1
    assert notes(run) == []


def test_the_superblock_of_a_restore_is_a_read_of_its_own(fault_loop, tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    scanset.write_set(folder / "set", restoring.records([3, 4]))
    image = restoring.target_image(tmp_path / "target.img", 64)
    with fault_loop(image, tmp_path / "mnt", "badread=0-63") as (device, _):
        run = restoring.restore(folder, device, env=answering(image))
    assert run.status == 0
    assert notes(run) == [RECOVERED.format(count=1, first=1)]


# Details that were left out


@pytest.mark.parametrize("bad", [999, 1000, 1500])
def test_details_that_were_left_out_are_counted(fault_loop, tmp_path, bad):
    image = saving.image_of(tmp_path / "image", 1600, {1: b"SPB5"})
    with fault_loop(image, tmp_path / "mnt", f"badread=64-{63 + bad}") as (device, _):
        run = saving.save(device, tmp_path, timeout=200)
    assert run.status == 0
    assert run.log.count("TrackReadErrorStats\n") == bad
    assert notes(run) == ([OMITTED.format(bad - 999)] if bad > 999 else [])


# Everything else


@pytest.mark.parametrize("words, status, told", [
    (["save", "data", "device"], 0, "In RunDumpMain(exit)"),
    (["save", "data", "none"], 1, 'Unable to open device "none" for read access - '),
    (["-P", "nowhere", "save", "data", "device"], 1, "Could not create nowhere/T0000000.ZSB"),
    (["save", "data", "zeros"], 1, "OSTREL Pool superblock header validation error:  "),
    (["--danger", "-P", "set", "--validation-skip", "restore", "pool", "device"], 0,
     "In RunRestoreMain(exit)"),
    (["--danger", "-P", "set", "restore", "pool", "none"], 1, 'Unable to open device "none" for '),
    (["--danger", "-P", "set", "restore", "pool", "zeros"], 1, "OSTREL Pool superblock header "),
    (["--danger", "-P", "nowhere", "restore", "pool", "device"], 1, "Could not open ZRB file:  "),
], ids=lambda value: " ".join(value) if isinstance(value, list) else "")
def test_failures_refusals_and_regular_files_as_devices_are_told_without_a_note(tmp_path, words,
                                                                              status, told):
    folder = restoring.make_folder(tmp_path / "run")
    scanset.write_set(folder / "set", restoring.records([3, 4]))
    saving.run_of(folder / "device", 64, 40)
    (folder / "zeros").write_bytes(bytes(1 << 18))
    run = ostrelscan.run(["--bypass-ostrel", *words], folder)
    assert run.status == status
    assert told in run.log
    assert notes(run) == []


def test_a_restore_that_the_operator_refuses_has_no_note(tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    scanset.write_set(folder / "set", restoring.records([3, 4]))
    run = restoring.restore(folder, "none", automatic=False)
    assert run.stdout.endswith(saving.failed_line(restoring.REFUSED) + "\n")
    assert notes(run) == []
