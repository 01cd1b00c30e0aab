"""The operator's screen during and after a save, cell by cell."""

import pytest

import ostrelscan
import poolTypes
import saving
import scanset
import signalled
from layout import PAUSE, layout, progress_rows, running_rows, shows_blocks, table_rows


def final_rows(picture, *, blocks, done, counts, out, files, path="./", pause=True):
    """What stands on the screen after a whole save."""
    rows = {0: f' Scanning {blocks} blocks on DATA.  Storing to "{path}".'}
    rows.update(enumerate(progress_rows(picture, blocks, blocks, done), 1))
    rows.update(table_rows(counts, out))
    rows.update({22 - at: " " + text for at, text in enumerate(reversed(files[-4:]))})
    if pause:
        rows[24] = PAUSE
    return rows


def paused(terminal):
    return terminal.wait_for("Press any key", timeout=60)


def stays_up(terminal, seconds=0.3):
    assert terminal.pump(seconds), "the run has ended"


SIZES = pytest.mark.parametrize("size", [(25, 80), (43, 132)], ids=["80x25", "132x43"])


@SIZES
@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_a_finished_save_shows_everything_in_its_place(pool, pool_device, tmp_path, size, compress):
    made = pool(size="16M")
    with pool_device(made) as device, saving.on_screen(
            device, tmp_path, *["-c"] * compress, rows=size[0], columns=size[1]) as terminal:
        picture = paused(terminal)
        done = made.internal - made.types["BT leaf Z64"]
        name = "./C0000000.ZSB" if compress else "./T0000000.ZSB"
        assert picture.rows == layout(size, final_rows(
            picture, blocks=made.blocks, done=done, counts=made.types,
            out={"User", "BT leaf Z64"}, files=[f"{name}     {done} of 2555            "]))
        assert picture.cursor == (24, len(PAUSE))
        terminal.send("x")
        assert terminal.wait_exit(60) == 0


@SIZES
def test_only_the_last_four_files_are_shown(loop, tmp_path, size):
    image = saving.run_of(tmp_path / "image", 4 * 2555 + 30, 4 * 2555 + 10)
    with loop(image) as device, saving.on_screen(
            device, tmp_path, "-P", str(tmp_path), rows=size[0], columns=size[1]) as terminal:
        picture = paused(terminal)
        path = f"{tmp_path}/"
        files = [f"{path}T000000{n}.ZSB     2555 of 2555            " for n in range(4)]
        files.append(f"{path}T0000004.ZSB     10 of 2555            ")
        counts = {"SBH Z32": 1, "BT branch": 4 * 2555 + 9, "User": 20}
        assert picture.rows == layout(size, final_rows(
            picture, blocks=4 * 2555 + 30, done=4 * 2555 + 10, counts=counts,
            out={"User", "BT leaf Z64"}, files=files, path=path))
        terminal.send("x")
        assert terminal.wait_exit(60) == 0


@SIZES
def test_read_errors_are_counted_on_the_screen(pool, fault_loop, tmp_path, size):
    made = pool(size="1M")
    bad = [0, 17, 18, 100, 255]
    image = made.copy_to(tmp_path / "image")
    counts = dict(made.types)
    for number, block in poolTypes.blocks(image):
        counts[poolTypes.classify(block)] -= number in bad
    done = len(saving.expected(image, bad=bad))
    with fault_loop(image, tmp_path / "mnt", "badread=0,17-18,100,255") as (device, _), \
            saving.on_screen(device, tmp_path, rows=size[0], columns=size[1]) as terminal:
        picture = paused(terminal)
        rows = final_rows(picture, blocks=256, done=done, counts=counts,
                          out={"User", "BT leaf Z64"},
                          files=[f"./T0000000.ZSB     {done} of 2555            "])
        rows[3] = "Pool read errors 5"
        assert picture.rows == layout(size, rows)
        terminal.send("x")
        assert terminal.wait_exit(60) == 0


def failed_rows(blocks, text, files=(), out=("User",), path="./"):
    rows = {0: f' Scanning {blocks} blocks on DATA.  Storing to "{path}".',
            1: "Blk 0(0 dumped) in 0 mins (0 blks/sec).  "}
    rows.update(table_rows({}, out))
    rows.update({22 - at: " " + line for at, line in enumerate(reversed(files))})
    rows[19] = text
    return rows


@SIZES
def test_a_wrong_superblock_is_told_at_row_19(loop, tmp_path, size):
    image = saving.image_of(tmp_path / "image", 64, {1: b"SPB4"})
    with loop(image) as device, saving.on_screen(
            device, tmp_path, rows=size[0], columns=size[1]) as terminal:
        picture = paused(terminal)
        rows = failed_rows(64, "OSTREL Pool superblock header validation error:  Pool's superblock "
                               "did not validate (ensure that the correct device was given)")
        rows[2] = " 0% done (1 mins left).  1 ZSB files will be created.    "
        rows[24] = PAUSE
        # The range is not settled when the check fails: one block is all that is known of.
        assert picture.rows == layout(size, rows)
        terminal.send("x")
        assert terminal.wait_exit(60) == 1
        assert terminal.now().text.strip() == saving.failed_line(1)


@SIZES
def test_a_path_that_cannot_be_written_is_told_with_the_file(loop, tmp_path, size):
    image = saving.run_of(tmp_path / "image", 64, 63)
    with loop(image) as device, saving.on_screen(
            device, tmp_path, "-P", "none", rows=size[0], columns=size[1]) as terminal:
        picture = paused(terminal)
        status = saving.SYSTEM_ERROR + 2
        rows = failed_rows(64, f"Could not complete scan of pool - {status}", path="none/",
                           files=[f"none/T0000000.ZSB     Error({status})            "],
                           out=("User", "BT leaf Z64"))
        rows[2] = " 0% done (2 mins left).  1 ZSB files will be created.    "
        rows[24] = PAUSE
        assert picture.rows == layout(size, rows)
        terminal.send("x")
        assert terminal.wait_exit(60) == 1
        assert terminal.now().text.strip() == saving.failed_line(status)


def test_the_screen_is_white_on_blue_and_nothing_on_it_is_bold(pool, pool_device, tmp_path):
    with pool_device(pool(size="1M")) as device, saving.on_screen(device, tmp_path) as terminal:
        picture = paused(terminal)
        looks = {(cell.fg, cell.bg, cell.bold) for row in range(25) for column in range(80)
                 if (cell := picture.cell(row, column))}
        assert looks == {("white", "blue", False)}


def test_an_automatic_save_never_waits_and_never_asks(pool, pool_device, tmp_path):
    made = pool(size="1M")
    with pool_device(made) as device, saving.on_screen(device, tmp_path, wait=False) as terminal:
        assert terminal.wait_exit(60) == 0
        assert b"Press any key" not in terminal.output
        picture = terminal.last_full()
        done = len(saving.expected(made.path))
        assert picture.rows == layout((25, 80), final_rows(
            picture, blocks=256, done=done, counts=made.types, out={"User", "BT leaf Z64"},
            files=[f"./T0000000.ZSB     {done} of 2555            "], pause=False))


@pytest.mark.parametrize("key", ["x", "\r", " ", "\x1b"], ids=["x", "enter", "blank", "escape"])
def test_any_key_ends_the_pause_and_none_does_not(pool, pool_device, tmp_path, key):
    with pool_device(pool(size="1M")) as device, saving.on_screen(device, tmp_path) as terminal:
        paused(terminal)
        stays_up(terminal)
        terminal.send(key)
        assert terminal.wait_exit(60) == 0
    assert ostrelscan.split_log((tmp_path / ostrelscan.LOG_NAME).read_text())[-1].closed


@SIZES
def test_a_running_save_shows_how_far_it_is(tmp_path, size):
    with saving.running(tmp_path, rows=size[0], columns=size[1]) as (terminal, feed):
        for current in range(3):
            terminal.wait_for(lambda picture, current=current: shows_blocks(current)(picture) and
                              picture.rows == layout(size, running_rows(picture, current)),
                              timeout=30)
            feed.block()
        paused(terminal)
        terminal.send("x")
        assert terminal.wait_exit(60) == 0
    file, = scanset.read_set(tmp_path)
    assert [number for number, _ in file.records] == [0, 1, 2]


def test_the_number_of_blocks_is_shown_once_it_is_known(tmp_path):
    feed = saving.Feed(tmp_path / "feed")
    with saving.on_screen(feed.path, tmp_path, "--validation-skip") as terminal:
        try:
            terminal.wait_for(lambda picture: picture.rows[0].startswith(" Scanning 0 blocks on DATA.")
                              and picture.rows[1].startswith("Blk 0(0 dumped) in "), timeout=30)
            stays_up(terminal)
            assert b"Scanning 3" not in terminal.output
            feed.open()
            terminal.wait_for(shows_blocks(0), timeout=30)
            for current in range(1, 4):
                feed.block()
                terminal.wait_for(lambda picture, current=current:
                                  picture.rows[1].startswith(f"Blk {current}("), timeout=30)
        finally:
            feed.close()
        paused(terminal)
        terminal.send("x")
        assert terminal.wait_exit(60) == 0


def test_a_save_whose_thread_cannot_be_started_says_so(tmp_path):
    with saving.on_screen("no-device", tmp_path,
                          env=ostrelscan.preload("libcallfaults.so", FAULT_CALL="thread")
                          ) as terminal:
        picture = paused(terminal)
        assert picture.rows[19].rstrip() == "Could not start the scan thread - 11"
        terminal.send("x")
        assert terminal.wait_exit(60) == 1
        assert saving.failed_line(11) in terminal.now().text
    log = ostrelscan.split_log((tmp_path / ostrelscan.LOG_NAME).read_text())[-1]
    assert log.closed
    assert log.body[-4:-1] == [
        "util/ostrelscan/scanUI[532] util/ostrelscan/scanUI[449] b Could not start the scan thread",
        "util/ostrelscan/scanUI[506]Status is b", "deleting the UI_ScreenID object"]


@pytest.mark.parametrize("term", [None, "", "no-such-terminal", "unknown"])
def test_a_terminal_that_cannot_be_had_ends_the_run_at_once(tmp_path, term):
    run = saving.run_on_terminal(saving.arguments("none"), tmp_path, term=term)
    assert (run.status, run.restored) == (1, True)
    assert run.log.splitlines()[-2:] == [
        "Exception while attempting to create a UserInterface Object:  "
        "Could not access SCAN screen via ScreenInterface",
        "util/ostrelscan/scanUI[1106]"]
    assert not run.log_run.closed
    assert len(run.log_run.times) == 1
    assert b"\x1b" not in run.output
    assert not list(tmp_path.glob("*.ZSB"))


@pytest.mark.parametrize("term", ["dumb", "vt100", "linux"])
def test_a_plainer_terminal_carries_a_run_to_its_end(pool, pool_device, tmp_path, term):
    made = pool(size="1M")
    with pool_device(made) as device:
        run = saving.run_on_terminal(["--automatic", *saving.arguments(device)], tmp_path,
                                     term=term)
    assert (run.status, run.restored, run.log_run.closed) == (0, True, True)
    saving.assert_saved(tmp_path, saving.expected(made.path))


def test_the_terminal_gets_its_modes_back(pool, pool_device, tmp_path):
    with pool_device(pool(size="1M")) as device:
        good = saving.run_on_terminal(["--automatic", *saving.arguments(device)], tmp_path)
        bad = saving.run_on_terminal(["--automatic", *saving.arguments("none")], tmp_path)
    assert [(run.status, run.restored) for run in (good, bad)] == [(0, True), (1, True)]
    assert good.text.strip() == ""
    assert bad.text.strip() == saving.failed_line(1)


def test_an_interrupt_gives_the_terminal_back(tmp_path):
    feed = saving.Feed(tmp_path / "feed")
    argv = saving.arguments(feed.path, "--validation-skip")
    with saving.in_shell(argv, tmp_path) as terminal:
        feed.open()
        terminal.wait_for(shows_blocks(0), timeout=30)
        tool = signalled.Run(terminal, tmp_path)
        terminal.send("\x03")
        signalled.wait_for_the_first(tool.pid)
        feed.close()
        run = tool.end()
    assert run.status == 1
    assert run.restored
    assert run.picture.rows[0].startswith(" Scanning 3 blocks")
