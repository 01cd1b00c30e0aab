"""Signals at every moment of a pass, one after the other: whatever its worker is at, the run ends as at
the moments that other tests look at more closely."""

import itertools
import signal

import pytest

import ostrelscan
import poolTypes
import restoring
import saving
import scanset
import signalled

BLOCKS = 24
PER_FILE = 3
RECORDS = restoring.records(range(2, 2 + 3 * PER_FILE))
FORMS = pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])


@pytest.fixture
def image(tmp_path):
    return saving.run_of(tmp_path / "image", BLOCKS, BLOCKS - 1)


def signalled_at(moment, words, folder, **settings):
    """A run that gets a SIGTERM where its worker has called a stream so many times."""
    env = ostrelscan.preload("libsignalat.so", "libsizepreload.so", SIGNAL_CALL="stream",
                             SIGNAL_AFTER=str(moment), SIGNAL_NUMBER=str(int(signal.SIGTERM)),
                             **settings)
    return saving.run_on_terminal(words, folder, env=env)


def moments(start):
    """What becomes of runs from `start`, a signal a moment later in each, until none comes any more:
    (run, folder), the last of them a run without a signal."""
    for moment in itertools.count():
        run, folder = start(moment)
        yield run, folder
        if not run.log_run.closed or not signalled.notes(run.log_run):
            return


def saves(folder, compress, **settings):
    def start(moment):
        own = folder / str(moment)
        own.mkdir()
        words = saving.arguments("../image", "--validation-skip", *(["-c"] if compress else []))
        return signalled_at(moment, ["--automatic", *words], own, **settings), own
    return start


def restores(folder, compress, **settings):
    def start(moment):
        own = restoring.make_folder(folder / str(moment))
        scanset.write_set(own / "set", RECORDS, per_file=PER_FILE, compress=compress)
        (own / "device").write_bytes(b"")
        words = ["--bypass-ostrel", *restoring.arguments("device", "--validation-skip")]
        return signalled_at(moment, ["--automatic", *words], own, **settings), own
    return start


def restored(folder):
    """How many of the records stand on the device, the first ones, and nothing else."""
    found = {number: block for number, block in poolTypes.blocks(folder / "device")
             if block != restoring.EMPTY}
    assert found == dict(RECORDS[:len(found)])
    return len(found)


@FORMS
def test_at_every_moment_a_signal_ends_a_save_closed(image, tmp_path, compress):
    records = saving.expected(image, validated=False)
    *stopped, (untouched, _) = moments(saves(tmp_path, compress))
    assert [run.status for run, _ in stopped].count(1) >= BLOCKS
    for run, folder in stopped:
        (file,) = scanset.read_set(folder)
        assert file.problems == []
        if run.status == 0:  # it came behind the last look for a stop
            assert file.records == records and not file.header["flags"] & scanset.STOPPED
            signalled.assert_record_closed(run.log_run, signal.SIGTERM)
        else:
            assert file.records == records[:len(file.records)]
            assert file.header["flags"] & scanset.STOPPED
            signalled.assert_ended(run, signal.SIGTERM)
    assert untouched.status == 0


@FORMS
def test_at_every_moment_a_signal_ends_a_restore_behind_a_file(image, tmp_path, compress):
    assert image.exists()
    *stopped, (untouched, _) = moments(restores(tmp_path, compress))
    assert [run.status for run, _ in stopped].count(1) > len(RECORDS)
    for run, folder in stopped:
        if run.status == 0:
            assert restored(folder) == len(RECORDS)
            signalled.assert_record_closed(run.log_run, signal.SIGTERM)
        else:
            assert restored(folder) in (PER_FILE, 2 * PER_FILE, 3 * PER_FILE)
            signalled.assert_ended(run, signal.SIGTERM)
    assert untouched.status == 0


@pytest.mark.parametrize("runs", [saves, restores])
@FORMS
def test_at_every_moment_a_second_signal_ends_a_run_at_once(image, tmp_path, runs, compress):
    assert image.exists()
    *ended, (untouched, _) = moments(runs(tmp_path, compress, SIGNAL_TWICE="1"))
    assert len(ended) >= 5
    for run, _ in ended:
        signalled.assert_ended_at_once(run, signal.SIGTERM)
    assert untouched.status == 0
