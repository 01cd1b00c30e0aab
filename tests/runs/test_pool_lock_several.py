"""Several runs at once: on two pools of one service, and on one pool."""

import contextlib

import pytest

import servedrun
from servedrun import ACCEPTED, POOL, VETOED, finished, handler_line

MIDDLE = "2000"
SECOND = "OTHER"
SECOND_GUID = "fedcba98-7654-0321-80-01-aabbccddeeff"
FOREIGN = handler_line("not the pool we care about.")
VETO = "  OSTREL.PoolLock answered 0xFFFF00 with 20880\n"


@pytest.fixture
def two_saves(serve, slow_device, sample, tmp_path):
    """Two saves at a standstill: (service, runs, disks). The folder "one" has the pool DATA's."""
    service = serve("maintenance", "--pool", f"{SECOND},{SECOND_GUID},maintenance")

    def start(*pool_names):
        runs, disks = [], []
        for name, folder in zip(pool_names, ("one", "two"), strict=True):
            (tmp_path / folder).mkdir()
            # A disk changes nothing of what only is read, so both can have the same image.
            device, disk = slow_device(MIDDLE, folder=f"disk-{folder}")
            runs.append(ends.enter_context(
                service.save(tmp_path / folder, device, pool=name)))
            disks.append(disk)
        for run, disk in zip(runs, disks, strict=True):
            disk.wait_for_pause()
            run.wait_until_stuck()
        assert service.registered(2)
        return service, runs, disks

    with contextlib.ExitStack() as ends:
        yield start


def go_on(disks):
    for disk in disks:
        disk.go_on()


def test_two_pools_are_saved_side_by_side(two_saves):
    service, runs, disks = two_saves(POOL, SECOND)
    assert sorted(service.spoken("request")) == sorted(
        [servedrun.pool_info_request(POOL), servedrun.pool_info_request(SECOND)] * 2)
    go_on(disks)
    assert [run.wait_exit() for run in runs] == [0, 0]
    assert service.holds_nothing()
    kinds = service.exchange_kinds()
    assert sorted(kinds) == sorted(servedrun.HELD_RUN * 2)


def test_a_forced_change_of_one_pool_leaves_the_save_of_another_alone(two_saves):
    service, (first, second), disks = two_saves(POOL, SECOND)
    change = service.change("active", "--forced")
    first.wait_for_line(ACCEPTED)
    second.wait_for_line(FOREIGN)
    go_on(disks)
    assert first.wait_exit() == 1 and first.failed_with(20826)
    assert second.wait_exit() == 0
    assert first.count(FOREIGN) == second.count(ACCEPTED) == 0
    assert finished(change)[0] == 0
    assert service.pool_state() == "active" and service.pool_state(SECOND) == "maintenance"
    assert service.holds_nothing()


def test_a_refusable_change_is_refused_by_the_run_that_it_concerns(two_saves):
    service, (first, second), disks = two_saves(POOL, SECOND)
    status, words = finished(service.change("active", pool=SECOND))
    assert status == 1
    assert sorted(words.splitlines()[:2]) == [
        "  OSTREL.PoolLock answered 0x0", "  OSTREL.PoolLock answered 0xFFFF00 with 20880"]
    go_on(disks)
    assert first.wait_exit() == second.wait_exit() == 0
    assert (first.count(FOREIGN), first.count(VETOED)) == (1, 0)
    assert (second.count(FOREIGN), second.count(VETOED)) == (0, 1)


def test_two_runs_on_one_pool_both_refuse(two_saves):
    service, runs, disks = two_saves(POOL, POOL)
    status, words = finished(service.change("active"))
    assert status == 1 and words.startswith(VETO * 2)
    go_on(disks)
    assert [run.wait_exit() for run in runs] == [0, 0]
    assert [run.count(VETOED) for run in runs] == [1, 1]
    assert service.holds_nothing() and service.pool_state() == "maintenance"


def test_a_forced_change_waits_for_both_runs_on_a_pool(two_saves):
    service, (first, second), disks = two_saves(POOL, POOL)
    change = service.change("active", "--forced")
    for run in (first, second):
        run.wait_for_line(ACCEPTED)
    disks[0].go_on()
    assert first.wait_exit() == 1 and first.failed_with(20826)
    assert change.poll() is None and service.pool_state() == "maintenance"
    disks[1].go_on()
    assert second.wait_exit() == 1 and second.failed_with(20826)
    status, words = finished(change)
    assert status == 0 and words.startswith("  OSTREL.PoolLock answered 0x0\n" * 2)
    assert service.answered_at_the_unlock()
    assert service.holds_nothing() and service.pool_state() == "active"


def test_the_end_of_one_run_does_not_let_the_pool_of_the_other_go(two_saves):
    service, (first, second), disks = two_saves(POOL, POOL)
    disks[0].go_on()
    assert first.wait_exit() == 0
    assert service.registered(1)
    status, words = finished(service.change("active"))
    assert status == 1 and words.startswith(VETO) and words.count("OSTREL.PoolLock answered") == 1
    disks[1].go_on()
    assert second.wait_exit() == 0
    assert service.holds_nothing()
