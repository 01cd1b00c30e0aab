"""Runs that hold their pool and are sent signals: the pool is let go, and a held change answered."""

import contextlib
import os
import signal

import pytest

import loopdev
import poolTypes
import scanset
import servedrun
import signalled
from servedrun import ACCEPTED, POOL, finished
from signalled import SIGNALS, name

MIDDLE = "2000"
PER_FILE = 100


@pytest.fixture
def saving_run(serve, slow_device, tmp_path):
    """Makes a save that stands still in the middle of its scan file: (service, run, disk)."""
    @contextlib.contextmanager
    def start(*options):
        service = serve()
        device, disk = slow_device(MIDDLE)
        with service.save(tmp_path, device, *options) as run:
            disk.wait_for_pause()
            run.wait_until_stuck()
            yield service, run, disk
            disk.go_on()
    return start


@pytest.fixture
def restoring_run(serve, sample, loop, tmp_path):
    """Makes a restore that stands still at the start of its second of three scan files."""
    @contextlib.contextmanager
    def start(compress):
        records = [(number, block) for number, block in poolTypes.blocks(sample.path)
                   if number > 1 and poolTypes.classify(block) not in ("User", "MSAP")]
        paths = scanset.write_set(tmp_path, records[:3 * PER_FILE], per_file=PER_FILE,
                                  pool_name=POOL, compress=compress)
        paths[1].rename(tmp_path / "second")
        with loopdev.fault_disk(tmp_path / "second", tmp_path / "mnt", "pause=0") as disk, \
                loop(sample.copy_to(tmp_path / "image")) as device:
            paths[1].symlink_to(disk.disk)
            service = serve()  # it shares no mounts with a disk that comes later
            with contextlib.ExitStack() as end, service.restore(tmp_path, device) as run:
                end.callback(disk.go_on)
                disk.wait_for_pause()
                yield service, run, disk
                disk.go_on()
    return start


def end_by(run, disk, number):
    signalled.send(run.pid, number, run.terminal)
    disk.go_on()
    assert run.wait_exit() == 1
    assert run.failed_with(signalled.STOPPED)
    assert f"Note: {name(number)} asked this run to end" in run.body


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_a_save_that_a_signal_ends_lets_its_pool_go(saving_run, tmp_path, number, compress):
    with saving_run(*(["-c"] if compress else [])) as (service, run, disk):
        end_by(run, disk, number)
        assert service.holds_nothing()
        assert service.exchange_kinds()[-1] == "unregister"
    (file,) = scanset.read_set(tmp_path)
    assert file.problems == []
    assert file.header["flags"] == scanset.STOPPED | (0x041 if compress else 0)


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
@pytest.mark.parametrize("number", SIGNALS, ids=name)
def test_a_restore_that_a_signal_ends_lets_its_pool_go(restoring_run, number, compress):
    with restoring_run(compress) as (service, run, disk):
        end_by(run, disk, number)
        assert service.holds_nothing()
        assert [line[1] for line in servedrun.history(run.body)] == ["0", str(signalled.STOPPED)]


def expect_answered(service, change):
    status, words = finished(change)
    assert status == 0 and words.startswith("  OSTREL.PoolLock answered 0x0\n")
    assert service.pool_state() == "active" and service.holds_nothing()


def test_a_change_that_a_save_holds_is_answered_when_a_signal_ends_it(saving_run):
    with saving_run() as (service, run, disk):
        change = service.change("active", "--forced")
        run.wait_for_line(ACCEPTED)
        assert change.poll() is None
        end_by(run, disk, signal.SIGTERM)
        expect_answered(service, change)


def test_a_change_that_a_restore_holds_is_answered_when_a_signal_ends_it(restoring_run):
    with restoring_run(False) as (service, run, disk):
        change = service.change("active", "--forced")
        run.wait_for_line(ACCEPTED)
        assert change.poll() is None
        end_by(run, disk, signal.SIGINT)
        expect_answered(service, change)


def test_a_second_signal_leaves_the_pool_to_the_service(saving_run):
    """The service knows that the run has died, and holds nothing for it."""
    with saving_run() as (service, run, disk):
        signalled.send(run.pid, signal.SIGTERM, run.terminal)
        with signalled.ending_at_once(run.pid, run.terminal):
            os.kill(run.pid, signal.SIGTERM)
        disk.go_on()
        assert run.wait_exit() == 1
        assert run.lines[-2].startswith("Note: SIGTERM ended this run at once")
        assert service.holds_nothing()
        assert "unregister" not in service.exchange_kinds()
