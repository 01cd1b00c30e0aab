"""A log that can no longer be written: the run goes on, and says so in the end."""

import os
import shutil

import pytest

import ostrelscan
import saving

INCOMPLETE = "ostrelscan.log is not complete: it could not be written."
GONE = "ostrelscan.log is not there any more."


@pytest.fixture
def image(tmp_path):
    return saving.run_of(tmp_path / "image", 64, 40)


@pytest.fixture
def folder(tmp_path):
    """A folder whose log takes nothing: every write fails as on a full disk."""
    folder = tmp_path / "run"
    folder.mkdir()
    (folder / ostrelscan.LOG_NAME).symlink_to("/dev/full")
    return folder


def save(image, folder, *options, **how):
    argv = ["--automatic", "--bypass-ostrel", "--validation-skip", *options, "save", "data", image]
    return ostrelscan.run(argv, folder, automatic=False, preload=True, **how)


def closing_lines(run):
    """What stands on standard output behind the screen."""
    lines = run.stdout.splitlines()
    screen = max(at for at, line in enumerate(lines) if "\x1b" in line)
    return [line for line in lines[screen + 1:] if line]


def test_a_save_that_succeeds_without_its_log_says_so(image, folder):
    run = save(image, folder)
    assert (run.status, run.stderr) == (0, "")
    assert closing_lines(run) == [INCOMPLETE]
    saving.assert_saved(folder, saving.expected(image, validated=False))


def test_a_save_that_fails_without_its_log_says_so_first(folder):
    run = save("none", folder)
    assert (run.status, run.stderr) == (1, "")
    assert closing_lines(run) == [INCOMPLETE, saving.failed_line(1)]


def test_a_run_without_a_screen_says_so_too(folder):
    run = save("none", folder, term="unknown")
    assert (run.status, run.stdout) == (1, f"\n{INCOMPLETE}\n")
    assert run.stderr == "ostrelscan: the screen could not be obtained (see ostrelscan.log).\n"


def test_on_a_terminal_it_stands_where_the_screen_was(folder):
    run = saving.run_on_terminal(["--automatic", *saving.arguments("none")], folder)
    assert (run.status, run.restored) == (1, True)
    assert [line for line in run.text.splitlines() if line] == [INCOMPLETE, saving.failed_line(1)]
    assert INCOMPLETE not in run.picture.text


def test_a_disk_that_gets_full_while_the_run_is_logged_is_noticed(image, tmpfs, tmp_path):
    (tmp_path / "out").mkdir()
    with tmpfs("size=12k") as folder:
        (folder / "fill").write_bytes(bytes(8192))
        runs = [save(image, folder, "-P", str(tmp_path / "out")) for _ in range(4)]
    assert [run.status for run in runs] == [0] * 4
    assert closing_lines(runs[0]) == []
    assert closing_lines(runs[-1]) == [INCOMPLETE]


@pytest.mark.parametrize("device, last", [("../image", []), ("none", [saving.failed_line(1)])])
def test_a_log_that_is_removed_during_the_run_is_noticed(image, tmp_path, device, last):
    folder = tmp_path / "run"
    folder.mkdir()
    env = ostrelscan.preload("libsizepreload.so")
    argv = [*saving.arguments(device, "--validation-skip")]
    with saving.in_shell(argv, folder, env=env) as terminal:
        terminal.wait_for("Press any key", timeout=60)
        (folder / ostrelscan.LOG_NAME).unlink()
        terminal.send("x")
        terminal.wait_exit(60)
        run = saving.outcome(terminal, folder)
    assert (run.status, run.restored) == (len(last), True)
    assert [line for line in run.text.splitlines() if line] == [GONE, *last]


def test_a_log_that_is_moved_aside_and_begun_anew_is_no_matter(tmp_path):
    folder = tmp_path / "run"
    folder.mkdir()
    with saving.in_shell(saving.arguments("none"), folder) as terminal:
        terminal.wait_for("Press any key", timeout=60)
        os.rename(folder / ostrelscan.LOG_NAME, folder / "older.log")
        (folder / ostrelscan.LOG_NAME).write_bytes(b"")
        terminal.send("x")
        terminal.wait_exit(60)
        run = saving.outcome(terminal, folder)
    assert [line for line in run.text.splitlines() if line] == [saving.failed_line(1)]
    assert ostrelscan.split_log((folder / "older.log").read_text())[-1].closed


def test_a_directory_that_is_removed_during_the_run_takes_the_log_along(image, tmp_path):
    folder = tmp_path / "run"
    folder.mkdir()
    with saving.on_screen(image, folder, "--validation-skip") as terminal:
        terminal.wait_for("Press any key", timeout=60)
        shutil.rmtree(folder)
        terminal.send("x")
        assert terminal.wait_exit(60) == 0
        assert [line for line in terminal.now().text.splitlines() if line] == [GONE]


def test_a_run_with_its_log_says_nothing_of_it(image, tmp_path):
    run = save(image, tmp_path)
    assert run.status == 0
    assert closing_lines(run) == []
    assert closing_lines(save("none", tmp_path)) == [saving.failed_line(1)]
