"""Parts of the dialogue by themselves, with figures that no quick run has."""

import contextlib

import pytest

import ostrelscan
import poolTypes
import restoring
import saving
import scanset
import screen

FILE = "DIR/T0000007.ZSB"


@contextlib.contextmanager
def shown(*steps):
    """The picture behind these steps, and nothing of a picture before them."""
    argv = [ostrelscan.helper("dialogueDriver"), *map(str, steps), "pause"]
    with screen.Terminal(argv, columns=120) as terminal:
        yield terminal.wait_for("Press any key")
        terminal.send("x")
        assert terminal.wait_exit(60) == 0


def row(number, *steps):
    with shown(*steps) as picture:
        return picture.rows[number].rstrip()


@pytest.mark.parametrize("read, write, line", [
    (0, 0, ""),
    (3, 0, "Pool read errors 3"),
    (0, 2, "Pool write errors 2"),
    (3, 2, "Pool read errors 3".ljust(40) + "Pool write errors 2"),
    (2**40, 2**41, f"Pool read errors {2**40}".ljust(40) + f"Pool write errors {2**41}"),
])
def test_errors_are_shown_once_there_are_some(read, write, line):
    assert row(3, "progress", 10, 5, 5, read, write) == line


@pytest.mark.parametrize("total, current, done, line", [
    (1000, 0, 0, " 0% done (17 mins left).  1 ZSB files will be created."),
    (1000, 1000, 900, " 100% done (0 mins left).  1 ZSB files will be created."),
    (2**40, 2**39, 2**30, " 50% done (0 mins left).  822084 ZSB files will be created."),
])
def test_the_progress_predicts_the_end(total, current, done, line):
    with shown("progress", total, current, done, 0, 0) as picture:
        rate = current + done
        assert picture.rows[1].rstrip() == \
            f"Blk {current}({done} dumped) in 0 mins ({rate} blks/sec)."
        assert picture.rows[2].rstrip() == line


@pytest.mark.parametrize("status, mode, state", [
    (0, 0, "17 of 2555"), (28001, 0, "17 of 2555"), (20012, 0, "Error(20012)"),
    (0, 1, "17 of 2555"), (28001, 1, "Error(28001)"), (20012, 1, "Error(20012)")])
def test_a_file_shows_its_blocks_or_its_error(status, mode, state):
    with shown("header", 0, "file", FILE, status, 17, 2555, mode) as picture:
        assert f' Storing to "./".{FILE}     {state}            ' in picture.rows[0]


@pytest.mark.parametrize("steps", [
    ("no-file", 0), ("no-file", 1), ("file", FILE, 0, 17, 2555, 2),
    ("file", FILE, 20012, 17, 2555, 9)], ids=lambda steps: " ".join(map(str, steps)))
def test_no_file_and_no_mode_show_nothing(steps):
    assert row(0, "header", 7, *steps) == ' Scanning 7 blocks on DATA.  Storing to "./".'


def test_an_action_that_is_none_is_not_supported():
    argv = [ostrelscan.helper("dialogueDriver"), "run", "check"]
    with screen.Terminal(argv) as terminal:
        assert terminal.wait_exit(60) == 0
        assert "status 20011" in terminal.now().text


@contextlib.contextmanager
def logged(folder, *steps):
    """The steps with their log in a file beside the terminal."""
    argv = ["/bin/sh", "-c", 'exec "$@" 2>log', "sh", ostrelscan.helper("dialogueDriver"),
            *map(str, steps)]
    with screen.Terminal(argv, cwd=folder) as terminal:
        yield terminal
        terminal.wait_for("Press any key")
        terminal.send("x")
        assert terminal.wait_exit(60) == 0


def test_a_save_can_be_asked_for_by_the_names_of_its_settings(tmp_path):
    image = saving.image_of(tmp_path / "image", 3, {2: b"User"})
    with logged(tmp_path, "save", "./", image):
        pass
    (file,) = saving.assert_saved(tmp_path, list(poolTypes.blocks(image)))
    assert file.path.name == "C0000000.ZSB"


def test_a_restore_can_be_asked_for_by_the_names_of_its_settings(tmp_path):
    records = restoring.records([0, 2], magic=b"none")
    scanset.write_set(tmp_path, records, pool_name="DATA")
    device = tmp_path / "device"
    device.write_bytes(b"")
    with logged(tmp_path, "restore", "./", device) as terminal:
        terminal.wait_for("Do you wish to restore")
        terminal.send("y")
    assert [(n, restoring.read_block(device, n)) for n, _ in records] == records
