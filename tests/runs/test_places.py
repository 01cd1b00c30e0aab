"""Runs in bad places: too few descriptors, too small files, a clock that runs backwards, a directory
that goes away, and another run in the same one. None crashes, and each gives the terminal
back and tells its end."""

import collections
import errno
import re
import shutil

import pytest

import ostrelscan
import poolTypes
import restoring
import saving
import scanset

NO_LOG_LINE = "ostrelscan.log is not complete: it could not be written."
NO_SCREEN_LINE = "ostrelscan: the screen could not be obtained (see ostrelscan.log)."
NO_FILE = 20444
NO_DESCRIPTOR = saving.SYSTEM_ERROR + errno.EMFILE
RECORDS = restoring.records(range(9))
TOO_LARGE = saving.SYSTEM_ERROR + errno.EFBIG


@pytest.fixture
def image(tmp_path):
    return saving.run_of(tmp_path / "image", 64, 40)


@pytest.fixture
def folder(tmp_path):
    """A folder to run in, with a set to restore and a plain file to restore it to."""
    folder = restoring.make_folder(tmp_path / "run")
    scanset.write_set(folder / "set", RECORDS, per_file=4)
    (folder / "device").write_bytes(b"")
    return folder


def save_words(image, *options):
    return ["--automatic", *saving.arguments(image, "--validation-skip", *options)]


RESTORE_WORDS = ["--automatic", "--bypass-ostrel",
                 *restoring.arguments("device", "--validation-skip")]


def assert_restored(folder, count=9):
    found = {number: block for number, block in poolTypes.blocks(folder / "device")
             if block != restoring.EMPTY}
    assert found == dict(RECORDS[:count])


def limited(limit, words, folder, **how):
    """A run under a limit of prlimit, on a terminal."""
    return saving.run_in_shell(f'exec prlimit --{limit} "$0" "$@"', folder, *words,
                               env=ostrelscan.preload("libsizepreload.so"), **how)


# Descriptors


@pytest.mark.parametrize("words, without", [
    (save_words("../image"), NO_DESCRIPTOR), (save_words("../image", "-c"), NO_DESCRIPTOR),
    (RESTORE_WORDS, NO_FILE)], ids=["save", "compressed", "restore"])
def test_a_run_needs_seven_descriptors(image, folder, words, without):
    if ostrelscan.sanitized():
        pytest.skip("a sanitizer needs descriptors itself")
    for descriptors, told in [(4, NO_SCREEN_LINE), (5, NO_SCREEN_LINE),
                              (6, saving.failed_line(without)), (7, ""), (12, "")]:
        run = limited(f"nofile={descriptors}", words, folder)
        saving.assert_orderly(run)
        assert run.text.strip() == told, descriptors
    if "restore" in words:
        assert_restored(folder)
    else:
        saving.assert_saved(folder, saving.expected(image, validated=False))


def test_a_system_without_three_descriptors_to_load_it_runs_no_program(folder):
    run = saving.run_in_shell('exec prlimit --nofile=3 "$0" "$@"', folder, *RESTORE_WORDS)
    assert (run.status, run.restored, run.log) == (127, True, "")


# The size of files


@pytest.mark.parametrize("options, told, flags", [((), TOO_LARGE, 0x280), (("-c",), 2**32 - 2, 0x2C1)],
                         ids=["raw", "compressed"])
def test_a_scan_file_that_may_not_grow_fails_the_save(pool, pool_device, tmp_path, options, told,
                                                      flags):
    folder = restoring.make_folder(tmp_path / "run")
    with pool_device(pool(size="16M")) as device:
        run = limited("fsize=131072", ["--automatic", *saving.arguments(device, *options)], folder)
    saving.assert_orderly(run)
    assert run.text.strip() == saving.failed_line(told)
    assert "ZSBFile::Write:: File too large" in run.log_run.lines
    file, = scanset.read_set(folder)
    assert file.header["flags"] == flags


@pytest.mark.parametrize("size", [0, 100, 1000])
def test_a_log_that_may_not_grow_is_told(image, folder, size):
    if size == 0 and ostrelscan.sanitized():
        pytest.skip("a sanitizer writes files itself")
    run = limited(f"fsize={size}", save_words("../image"), folder)
    assert (run.status, run.restored) == (1, True)
    assert [line for line in run.text.splitlines() if line] == [
        NO_LOG_LINE, saving.failed_line(TOO_LARGE)]
    assert len(run.log) == size


def test_a_device_that_is_a_file_and_may_not_grow_fails_the_restore(folder):
    run = limited("fsize=20480", RESTORE_WORDS, folder)
    saving.assert_orderly(run)
    assert run.text.strip() == saving.failed_line(TOO_LARGE)
    assert (folder / "device").stat().st_size == 20480


# The clock


@pytest.mark.parametrize("step", [60, 10**9], ids=["a minute", "decades"])
def test_a_clock_that_runs_backwards_changes_no_result(image, folder, step):
    run = saving.run_on_terminal(save_words("../image"), folder,
                                 env=ostrelscan.preload("libclocksteps.so", "libsizepreload.so",
                                                        CLOCK_STEP=str(step)))
    saving.assert_orderly(run)
    assert run.status == 0
    assert re.match(r"Blk 64\(40 dumped\) in 0 mins \(104 blks/sec\)", run.picture.rows[1])
    file, = saving.assert_saved(folder, saving.expected(image, validated=False))
    assert step == 10**9 or file.header["closeTime"] < file.header["createTime"]
    times = [int(found) for found in re.findall(r'timeValue="(-?\d+)"', run.log)]
    assert times == sorted(times, reverse=True) and len(times) == 2
    file.path.rename(folder / "set" / "T0000000.ZRB")
    (folder / "set" / "T0000001.ZRB").unlink()
    restored = restoring.restore_to_file(folder)
    assert (restored.status, "Note: " in restored.log) == (0, False)


# A directory that goes away


def test_a_directory_that_is_removed_takes_what_is_written_there(tmp_path):
    folder = tmp_path / "run"
    folder.mkdir()
    feed = saving.Feed(tmp_path / "feed")
    words = saving.arguments(feed.path, "--validation-skip", "--automatic")
    with saving.screen.Terminal([ostrelscan.tool(), *words], cwd=folder) as terminal:
        feed.open()
        terminal.wait_for("of 2555", timeout=30)
        shutil.rmtree(folder)
        for _ in range(3):
            feed.block()
        feed.close()
        assert terminal.wait_exit(60) == 0
        assert terminal.now().text.strip() == "ostrelscan.log is not there any more."


def test_a_directory_of_scan_files_that_is_removed_fails_the_next_file(fault_loop, tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    image = saving.run_of(tmp_path / "image", 2600, 2590)
    with fault_loop(image, tmp_path / "mnt", "pause=2400") as (device, disk):
        words = ["--automatic", *saving.arguments(device, "-P", "set")]
        with saving.in_shell(words, folder) as terminal:
            disk.wait_for_pause()
            shutil.rmtree(folder / "set")
            disk.go_on()
            terminal.wait_exit(60)
            run = saving.outcome(terminal, folder)
    saving.assert_orderly(run)
    status = saving.SYSTEM_ERROR + errno.ENOENT
    assert run.text.strip() == saving.failed_line(status)
    assert "Could not create set/T0000001.ZSB because No such file or directory" in \
        run.log_run.lines


def test_a_set_that_is_removed_ends_its_restore_behind_the_open_file(fault_disk, tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    second = scanset.write_set(folder / "set", RECORDS, per_file=4)[1]
    second.rename(tmp_path / "held")
    (folder / "device").write_bytes(b"")
    with fault_disk(tmp_path / "held", tmp_path / "mnt", "pause=0") as disk:
        second.symlink_to(disk.disk)
        with saving.in_shell(RESTORE_WORDS, folder) as terminal:
            disk.wait_for_pause()
            shutil.rmtree(folder / "set")
            disk.go_on()
            terminal.wait_exit(60)
            run = saving.outcome(terminal, folder)
    saving.assert_orderly(run)
    assert run.text.strip() == saving.failed_line(NO_FILE)
    assert_restored(folder, 8)


# Two runs at once


def masked(log):
    """The lines of a log without what differs from run to run."""
    log = re.sub(r"<CurrentTime .*/>", "TIME", log)
    log = re.sub(r"feed\d", "FEED", log)
    return collections.Counter(re.sub(r"\t\d{5,}\t", "\tCRC\t", line) for line in log.splitlines())


def saving_at_once(folder, feeds, *options):
    """Runs saves in one folder, each from a feed of its own, that are all under way at once."""
    with saving.contextlib.ExitStack() as stack:
        terminals = []
        for feed, option in zip(feeds, options or [()] * len(feeds)):
            words = saving.arguments(feed.path, "--validation-skip", "--automatic", *option)
            terminal = saving.screen.Terminal([ostrelscan.tool(), *words], cwd=folder)
            terminals.append(stack.enter_context(terminal))
            feed.open()
            terminal.wait_for("of 2555", timeout=30)
        for feed in feeds:
            for _ in range(3):
                feed.block()
            feed.close()
        return [terminal.wait_exit(60) for terminal in terminals]


def feeds_of(tmp_path, count):
    return [saving.Feed(tmp_path / f"feed{number}") for number in range(count)]


def test_two_runs_at_once_share_a_log_whose_entries_are_whole(tmp_path):
    one, two = restoring.make_folder(tmp_path / "one"), restoring.make_folder(tmp_path / "two")
    assert saving_at_once(one, feeds_of(tmp_path, 1)) == [0]
    (tmp_path / "feed0").unlink()
    assert saving_at_once(two, feeds_of(tmp_path, 2)) == [0, 0]
    alone = masked((one / ostrelscan.LOG_NAME).read_text())
    assert masked((two / ostrelscan.LOG_NAME).read_text()) == alone + alone


def test_two_runs_at_once_that_store_apart_do_not_meet(tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    (folder / "a").mkdir()
    assert saving_at_once(folder, feeds_of(tmp_path, 2), ("-P", "a"), ("-P", "set")) == [0, 0]
    for path in ("a", "set"):
        file, = scanset.read_set(folder / path)
        assert (file.problems, len(file.records)) == ([], 3)


def test_two_runs_at_once_that_store_together_leave_the_files_of_the_later(tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    assert saving_at_once(folder, feeds_of(tmp_path, 2)) == [0, 0]
    file, = scanset.read_set(folder)
    assert len(file.records) == 3


# Standard streams


@pytest.mark.parametrize("redirect", [">&-", "<&- >&-", "2>&-"])
def test_a_failure_without_standard_streams_keeps_its_exit_status(folder, redirect):
    run = saving.run_on_terminal(save_words("none"), folder, redirect=redirect)
    assert (run.status, run.restored) == (1, True)
    assert run.log_run.closed
