"""Every call that can fail does, one after the other: a run ends in its time, with 1 and a reason or
with 0 and everything there; never with a crash, a hang, a terminal in curses mode or an open log."""

import pytest

import failingcalls
import restoring
import saving
from failingcalls import Restore, Save

BLOCKS, SELECTED = 12, 8
RECORDS = restoring.records([2, 3, 5, 9])
WHAT = {"raw": False, "compressed": True}
CHANNEL = ("fopen", "fwrite", "fflush", "fseek", "fread", "fclose", "setvbuf", "pthread_create")


DEFLATE = ("deflateInit_", "deflate", "deflateReset", "deflateEnd")
INFLATE = ("inflateInit_", "inflate", "inflateReset", "inflateEnd")
DEVICE = ("open", "fopen", "fread", "fread,pread64", "fseeko64", "fwrite", "fflush", "fsync", "fclose")


@pytest.fixture
def image(tmp_path):
    return saving.run_of(tmp_path / "image", BLOCKS, SELECTED)


def assert_all_kept(work, folder, start, must, calls=tuple(failingcalls.FUNCTIONS), **how):
    """Walks over the calls; those that such a run must make have failed at least once."""
    nothing = failingcalls.Fault("fopen", failingcalls.MANY)
    assert failingcalls.strike(work, nothing, folder / "untouched", start) == (False, [])
    struck, wrong = failingcalls.walk_all(work, folder, start, calls, **how)
    assert wrong == []
    assert [call for call in must if struck[call] == 0] == []


@pytest.mark.parametrize("kind", WHAT)
def test_a_save_survives_every_failing_call(image, tmp_path, kind):
    work = Save(image, *["-c"] * WHAT[kind])
    assert_all_kept(work, tmp_path, failingcalls.start_alone,
                    [*Save.calls, *DEFLATE] if WHAT[kind] else Save.calls)


@pytest.mark.parametrize("kind", WHAT)
def test_a_restore_survives_every_failing_call(tmp_path, kind):
    work = Restore(RECORDS, compress=WHAT[kind])
    assert_all_kept(work, tmp_path, failingcalls.start_alone,
                    [*Restore.calls, *INFLATE] if WHAT[kind] else Restore.calls)


@pytest.mark.parametrize("kind", WHAT)
def test_a_save_under_the_lock_survives_every_failing_call(serve, image, tmp_path, kind):
    service = serve()
    work = Save(image, *["-c"] * WHAT[kind])
    assert_all_kept(work, tmp_path, failingcalls.start_beside(service), CHANNEL, CHANNEL)
    assert service.holds_nothing()


@pytest.mark.parametrize("kind", WHAT)
def test_a_restore_under_the_lock_survives_every_failing_call(serve, tmp_path, kind):
    service = serve()
    work = Restore(RECORDS, compress=WHAT[kind])
    assert_all_kept(work, tmp_path, failingcalls.start_beside(service), CHANNEL, CHANNEL)
    assert service.holds_nothing()


def test_a_restore_onto_a_device_survives_every_failing_call(loop, tmp_path):
    with loop(restoring.target_image(tmp_path / "target", BLOCKS)) as device:
        work = Restore(RECORDS, device=device)
        assert_all_kept(work, tmp_path, failingcalls.start_alone, DEVICE, DEVICE, workers=1)
