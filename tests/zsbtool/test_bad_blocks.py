"""`zsbtool bad-blocks`: what a save could not read, as a list and as a map for ddrescue."""

import pathlib
import shutil
import subprocess

import pytest

import ostrelscan
import saving
import scanset
import zsbtool

RUNS = pathlib.Path(__file__).resolve().parent / "logs" / "runs.log"
BLOCK = 4096


def regions(text):
    """(first block, blocks, status) of each line of a mapfile, which must leave no gap."""
    head, *lines = [line.split() for line in text.splitlines() if not line.startswith("#")]
    found = [(int(pos, 16), int(size, 16), status) for pos, size, status in lines]
    assert head == ["0x00000000", "?" if any(status == "?" for _, _, status in found) else "+", "1"]
    end = 0
    for pos, size, _ in found:
        assert (pos, pos % BLOCK, size % BLOCK) == (end, 0, 0)
        end = pos + size
    return [(pos // BLOCK, size // BLOCK, status) for pos, size, status in found]


def accepted(text, folder):
    """What ddrescuelog says of a mapfile."""
    path = pathlib.Path(folder) / "map"
    path.write_text(text, encoding="ascii")
    if not shutil.which("ddrescuelog"):
        pytest.skip("ddrescuelog is not installed")
    done = subprocess.run(["ddrescuelog", "-t", path], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout


def mapfile(tmp_path, *arguments):
    shown = zsbtool.run("bad-blocks", "--mapfile", *arguments)
    assert (shown.status, shown.err) == (0, "")
    accepted(shown.text, tmp_path)
    return regions(shown.text)


def save_with(fault_loop, image, tmp_path, faults, *options):
    with fault_loop(image, tmp_path / "mnt", faults) as (device, _):
        run = saving.save(device, tmp_path, *options, timeout=300)
    assert run.status == 0
    return run


def test_the_blocks_are_those_that_could_not_be_read(fault_loop, pool, tmp_path):
    image = pool(size="16M").copy_to(tmp_path / "image")
    save_with(fault_loop, image, tmp_path, "badread=5,70-71,4095")
    found = zsbtool.document("bad-blocks", tmp_path)
    assert found == {"format": 1, "command": "bad-blocks", "run": 1, "blocks": [5, 70, 71, 4095],
                     "errors": 4, "complete": True}
    assert mapfile(tmp_path, tmp_path) == [
        (0, 5, "+"), (5, 1, "-"), (6, 64, "+"), (70, 2, "-"), (72, 4023, "+"), (4095, 1, "-")]


def test_ddrescue_puts_the_blocks_into_an_image_of_the_set(fault_loop, pool, tmp_path):
    if not shutil.which("ddrescue"):
        pytest.skip("ddrescue is not installed")
    image = pool(size="16M").copy_to(tmp_path / "image")
    folders = [tmp_path / name for name in ("failing", "rescued", "sound")]
    for folder in folders:
        folder.mkdir()
    save_with(fault_loop, image, folders[0], "badread=70-140,2000-2007")
    zsbtool.run("image", "-o", "pool.img", folders[0], cwd=tmp_path)
    (tmp_path / "pool.map").write_text(zsbtool.run("bad-blocks", "--mapfile", folders[0]).text,
                                       encoding="ascii")
    subprocess.run(["ddrescue", "-r3", image, "pool.img", "pool.map"], cwd=tmp_path, check=True,
                   capture_output=True)
    for folder, source in zip(folders[1:], (tmp_path / "pool.img", image)):
        assert ostrelscan.run(["--bypass-ostrel", "save", "sample", source], folder,
                              preload=True).status == 0
    failing, rescued, sound = [dict(scanset.set_records(folder)) for folder in folders]
    assert rescued == sound and len(failing) < len(sound)


def test_what_stands_behind_the_999th_is_unknown(fault_loop, pool, tmp_path):
    image = pool(size="16M").copy_to(tmp_path / "image")
    save_with(fault_loop, image, tmp_path, "badread=2000-3200")
    found = zsbtool.document("bad-blocks", tmp_path)
    assert found["blocks"] == list(range(2000, 2999))
    assert (found["errors"], found["complete"]) == (1201, False)
    assert mapfile(tmp_path, tmp_path) == [(0, 2000, "+"), (2000, 999, "-"), (2999, 1097, "?")]
    shown = zsbtool.run("bad-blocks", tmp_path)
    assert (shown.status, shown.err) == (0, "")
    assert shown.text.endswith(
        "2998\n999 unreadable blocks\n"
        "not complete: the log counts 202 more read errors without their blocks\n")


def test_exactly_999_are_complete(fault_loop, pool, tmp_path):
    image = pool(size="16M").copy_to(tmp_path / "image")
    save_with(fault_loop, image, tmp_path, "badread=2000-2998")
    found = zsbtool.document("bad-blocks", tmp_path)
    assert (found["errors"], found["complete"]) == (999, True)
    assert mapfile(tmp_path, tmp_path) == [(0, 2000, "+"), (2000, 999, "-"), (2999, 1097, "+")]


def test_a_run_that_was_not_closed_is_known_up_to_its_last_bad_block(tmp_path):
    found = zsbtool.document("bad-blocks", "--run", 6, RUNS)
    assert found["blocks"] == [17, 40, 41, 42]
    assert (found["run"], found["complete"]) == (6, False)
    assert mapfile(tmp_path, "--run", 6, RUNS) == [
        (0, 17, "+"), (17, 1, "-"), (18, 22, "+"), (40, 3, "-"), (43, 257, "?")]
    shown = zsbtool.run("bad-blocks", "--run", 6, RUNS)
    assert shown.text == ("17\n40\n41\n42\n4 unreadable blocks\n"
                          "not complete: the run was not closed\n")


def test_a_run_without_errors(tmp_path):
    assert zsbtool.document("bad-blocks", "--run", 1, RUNS)["blocks"] == []
    assert mapfile(tmp_path, "--run", 1, RUNS) == [(0, 300, "+")]
    assert zsbtool.run("bad-blocks", "--run", 1, RUNS).text == "0 unreadable blocks\n"


def test_a_save_that_ended_early_knows_nothing_of_the_rest(tmp_path):
    # Run 3 could not make its first file.
    assert mapfile(tmp_path, "--run", 3, RUNS) == [(0, 300, "?")]


def test_blocks_are_sorted_and_none_stands_twice(tmp_path):
    details = "".join(
        "TrackReadErrorStats\n  Read error recorded from util/ostrelscan/scanEngine[1366]  "
        f"Block - {block} Status - 22ba5005\n" for block in ("1f", "3", "1f", "a"))
    log = tmp_path / "ostrelscan.log"
    log.write_text(f"<ostrelscan>\nBlocks in pool is 64\n{details}UI - 40 Dumped  0\n"
                   "</ostrelscan>\n", encoding="ascii")
    found = zsbtool.document("bad-blocks", log)
    assert (found["blocks"], found["errors"], found["complete"]) == ([3, 10, 31], 4, True)


def test_the_last_run_is_the_default():
    assert zsbtool.document("bad-blocks", RUNS)["run"] == 10


@pytest.mark.parametrize("number", ["0", "11", "18446744073709551615"])
def test_a_run_that_is_not_there_ends_with_1(number):
    shown = zsbtool.run("bad-blocks", "--run", number, RUNS)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.endswith(f": there is no run {number}\n")


@pytest.mark.parametrize("number", ["x", "-1", "1.5", "", "0x1", "18446744073709551616"])
def test_a_number_of_a_run_must_be_one(number):
    shown = zsbtool.run("bad-blocks", f"--run={number}", RUNS)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.startswith("zsbtool: ")


def test_a_restore_has_no_map():
    shown = zsbtool.run("bad-blocks", "--mapfile", RUNS)
    assert (shown.status, shown.text) == (1, "")
    assert "tells no size of the pool" in shown.err


def test_a_map_is_no_json():
    shown = zsbtool.run("bad-blocks", "--mapfile", "--json", RUNS)
    assert (shown.status, shown.text) == (1, "")
