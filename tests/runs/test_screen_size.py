"""A terminal that grows and shrinks is followed in every dialogue, and no key is taken for it."""

import contextlib

import pytest

import loopdev
import ostrelscan
import restoring
import saving
import scanset
import screen
from layout import (CONSENT, PAUSE, consent_rows, layout, other_name_rows, running_rows, shows,
                    shows_blocks, table_rows)

# One column more, one less; one row; wide and back; too small for all; no size to speak of.
SIZES = [(25, 81), (25, 80), (26, 80), (25, 80), (43, 132), (12, 40), (25, 79), (1, 1), (30, 100)]

RECORDS = restoring.records(range(6))


def resized(terminal, rows):
    """The screen shows these rows at every size; `rows` may be a function of the picture."""
    of = rows if callable(rows) else lambda _: rows
    for size in SIZES:
        terminal.resize(*size)
        terminal.wait_for(lambda picture, size=size: picture.rows == layout(size, of(picture)),
                          timeout=30)


def paused(terminal):
    return terminal.wait_for(PAUSE.strip(), timeout=60)


def ended_by_a_key(terminal, status=0):
    terminal.send("x")
    assert terminal.wait_exit(60) == status


def log_of(folder):
    log = folder / ostrelscan.LOG_NAME
    return log.read_text(encoding="utf-8") if log.exists() else ""


# Saves


def test_a_running_save_follows_its_terminal(tmp_path):
    with saving.running(tmp_path) as (terminal, feed):
        terminal.wait_for(shows_blocks(0), timeout=30)
        resized(terminal, lambda picture: running_rows(picture, 0))
        for _ in range(3):
            feed.block()
        paused(terminal)
        ended_by_a_key(terminal)


def test_the_pause_of_a_save_follows_its_terminal(tmp_path):
    with saving.running(tmp_path) as (terminal, feed):
        for _ in range(3):
            feed.block()
        rows = {**running_rows(paused(terminal), 3), 24: PAUSE}
        resized(terminal, rows)
        assert terminal.pump(0.3), "a resize has ended the pause"
        ended_by_a_key(terminal)


# Restores


@pytest.fixture
def folder(tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    (folder / "device").write_bytes(b"")
    return folder


def restore_on(folder, *, before=(), **how):
    argv = [*before, ostrelscan.tool(), "--bypass-ostrel", "--validation-skip",
            *restoring.arguments("device", pool="data")]
    return screen.Terminal(argv, cwd=folder, **how)


def restore_rows(counts, files):
    """What a restore shows; `files` are its last scan files, the oldest first."""
    rows = {0: ' Restoring to pool DATA from "set/".', **table_rows(counts, {"MSAP", "User"})}
    rows.update({22 - at: f" set/{text}" for at, text in enumerate(reversed(files))})
    return rows


def test_the_consent_question_follows_its_terminal(folder):
    scanset.write_set(folder / "set", RECORDS, pool_name="DATA")
    with restore_on(folder) as terminal:
        terminal.wait_for(f"{CONSENT} n")
        resized(terminal, consent_rows("set/", "DATA"))
        assert terminal.bells == 0
        terminal.send("y")
        paused(terminal)
        ended_by_a_key(terminal)


def test_the_question_about_another_pool_follows_its_terminal(folder):
    scanset.write_set(folder / "set", RECORDS, pool_name="OTHER")
    with restore_on(folder) as terminal:
        terminal.wait_for(f"{CONSENT} n")
        terminal.send("y")
        terminal.wait_for("called OTHER.")
        resized(terminal, other_name_rows("set/", "OTHER", "DATA"))
        assert terminal.bells == 0
        terminal.send("n")
        assert terminal.wait_exit(60) == 1


@contextlib.contextmanager
def held_restore(folder):
    """A restore that stands still at the start of its second scan file, of two: (terminal, disk)."""
    _, second = scanset.write_set(folder / "set", RECORDS, per_file=3, pool_name="DATA")
    second.rename(folder / "second")
    with loopdev.fault_disk(folder / "second", folder / "mnt", "pause=0") as disk:
        second.symlink_to(disk.disk)
        with restore_on(folder) as terminal:
            terminal.wait_for(f"{CONSENT} n")
            terminal.send("y")
            disk.wait_for_pause()
            try:
                yield terminal, disk
            finally:
                disk.go_on()


def shows_the_first_file(picture):
    """The counts are drawn before the files, so they may be a repaint behind."""
    files = {row: picture.rows[row].rstrip() for row in (21, 22)}
    wanted = shows((25, 80), {**restore_rows({"BT leaf Z32": 3}, ()), **files})
    return "3 of 3" in picture.text and wanted(picture)


@pytest.mark.usefixtures("fault_disk")
def test_a_running_restore_follows_its_terminal_to_its_end(folder):
    with held_restore(folder) as (terminal, disk):
        rows = dict(enumerate(row.rstrip() for row in terminal.wait_for(shows_the_first_file).rows))
        resized(terminal, rows)
        disk.go_on()
        paused(terminal)
        terminal.wait_for(shows((30, 100), {
            **restore_rows({"BT leaf Z32": 6}, [f"T000000{n}.ZRB     3 of 3" for n in (0, 1)]),
            24: PAUSE}))
        ended_by_a_key(terminal)


def test_the_pause_of_a_restore_follows_its_terminal(folder):
    scanset.write_set(folder / "set", RECORDS, pool_name="DATA")
    with restore_on(folder) as terminal:
        terminal.wait_for(f"{CONSENT} n")
        terminal.send("y")
        paused(terminal)
        resized(terminal, {**restore_rows({"BT leaf Z32": 6}, ["T0000000.ZRB     6 of 6"]),
                           24: PAUSE})
        assert terminal.pump(0.3), "a resize has ended the pause"
        ended_by_a_key(terminal)


def test_the_pause_behind_an_error_follows_its_terminal(folder):
    with restore_on(folder) as terminal:
        terminal.wait_for(f"{CONSENT} n")
        terminal.send("y")
        paused(terminal)
        resized(terminal, {19: "Could not open ZRB file - 20431", 24: PAUSE})
        ended_by_a_key(terminal, 1)


# Sizes that are none, or beyond the pad


NO_SIZE = ["/bin/sh", "-c", 'stty rows 0 cols 0; exec "$0" "$@"']
ENORMOUS = (500, 400)


def save_of(folder, feed, *options):
    return [ostrelscan.tool(), *options, *saving.arguments(feed.path, "--validation-skip")]


@contextlib.contextmanager
def fed_save(folder, *, options=(), before=(), **how):
    """A save of three blocks that can be read at once."""
    feed = saving.Feed(folder / "feed")
    with screen.Terminal([*before, *save_of(folder, feed, *options)], cwd=folder,
                         **how) as terminal:
        try:
            feed.open()
            for _ in range(3):
                feed.block()
            yield terminal
        finally:
            feed.close()


@pytest.mark.parametrize("how", [
    {"rows": 1, "columns": 1}, {"rows": 500, "columns": 400}, {"before": NO_SIZE}],
    ids=["1x1", "500x400", "0x0"])
def test_a_save_ends_well_on_a_terminal_of_any_size(tmp_path, how):
    with fed_save(tmp_path, options=["--automatic"], **how) as terminal:
        assert terminal.wait_exit(60) == 0
    file, = scanset.read_set(tmp_path)
    assert [number for number, _ in file.records] == [0, 1, 2]


@pytest.mark.parametrize("how", [
    {"rows": 1, "columns": 1}, {"rows": 500, "columns": 400}, {"before": NO_SIZE}],
    ids=["1x1", "500x400", "0x0"])
def test_a_restore_asks_and_ends_well_on_a_terminal_of_any_size(folder, how):
    scanset.write_set(folder / "set", RECORDS, pool_name="DATA")
    with restore_on(folder, **how) as terminal:
        while terminal.bells == 0:  # where the question is not to be seen, it is to be heard
            terminal.send(" ")
            assert terminal.pump(0.1), "the run has ended"
        terminal.send("y")
        ended_by_a_key(terminal)
    assert restoring.read_block(folder / "device", 5) == RECORDS[5][1]


@pytest.mark.parametrize("words", [
    saving.arguments("image", "--validation-skip"),
    ["--bypass-ostrel", "--validation-skip", *restoring.arguments("device", pool="data")]],
    ids=["save", "restore"])
@pytest.mark.parametrize("how, before", [
    ({"rows": 1, "columns": 1}, ""), ({"rows": 500, "columns": 400}, ""),
    ({}, "stty rows 0 cols 0; ")], ids=["1x1", "500x400", "0x0"])
def test_a_terminal_of_any_size_gets_its_modes_back(folder, words, how, before):
    saving.run_of(folder / "image", 64, 40)
    scanset.write_set(folder / "set", RECORDS, pool_name="DATA")
    run = saving.run_in_shell(f'{before}exec "$0" --automatic "$@"', folder, *words, **how)
    assert (run.status, run.restored, run.text.strip()) == (0, True, "")
    assert run.log_run.closed


def test_the_pad_stands_in_the_corner_of_an_enormous_terminal(tmp_path):
    with fed_save(tmp_path, rows=ENORMOUS[0], columns=ENORMOUS[1]) as terminal:
        picture = paused(terminal)
        assert picture.rows == layout(ENORMOUS, {**running_rows(picture, 3), 24: PAUSE})
        ended_by_a_key(terminal)


def test_one_cell_shows_one_cell_and_a_key_ends_its_pause(tmp_path):
    with fed_save(tmp_path, rows=1, columns=1) as terminal:
        terminal.wait_for(lambda _: "DumpScanHistory Done" in log_of(tmp_path), timeout=60)
        assert terminal.now().rows == [" "]
        ended_by_a_key(terminal)


def test_a_terminal_that_gets_a_size_at_the_pause_shows_everything(tmp_path):
    with fed_save(tmp_path, before=NO_SIZE) as terminal:
        terminal.wait_for(lambda _: "DumpScanHistory Done" in log_of(tmp_path), timeout=60)
        assert terminal.now().text.strip() == ""
        terminal.resize(25, 80)
        picture = paused(terminal)
        assert picture.rows == layout((25, 80), {**running_rows(picture, 3), 24: PAUSE})
        ended_by_a_key(terminal)


@pytest.mark.parametrize("size", [(200, 0), (0, 200)])
def test_a_size_that_is_none_is_refused_and_leaves_the_screen_at_work(folder, size):
    scanset.write_set(folder / "set", RECORDS, pool_name="DATA")
    with restore_on(folder) as terminal:
        terminal.wait_for(f"{CONSENT} n")
        terminal.child.setwinsize(*size)
        terminal.send("y")
        terminal.wait_for(lambda _: "DumpScanHistory Done" in log_of(folder), timeout=60)
        terminal.resize(26, 81)
        terminal.wait_for(shows((26, 81), {
            **restore_rows({"BT leaf Z32": 6}, ["T0000000.ZRB     6 of 6"]), 24: PAUSE}), timeout=30)
        ended_by_a_key(terminal)
