"""A service that stands still or dies keeps no run from its end, nor a dead run the service."""

import os
import signal
import time

import servedrun
from servedrun import ACCEPTED, POOL, finished

# The bus library gives a service five seconds, or less where a test waits for them; the rest is for a
# busy machine.
BOUND = 20
IMPATIENT = {"OSTRELSIM_PATIENCE": "2000"}
# What the library says of a service that does not answer; of one that is gone it says so too until
# it has noticed.
STOPPED = (24999,)
DEAD = (20008, 24999)
NOT_UNREGISTERED = ("util/common/heb[225] Could not unregister from HEB "
                    "Could not unregister with HEB")


def expect_end(run, disk, status, bus_statuses):
    disk.go_on()
    begin = time.monotonic()
    assert run.wait_exit() == status
    assert servedrun.elapsed(begin) < BOUND
    at = run.body.index("In RunDumpMain(exit)")
    assert run.body[at - 1] == NOT_UNREGISTERED
    assert run.body[at - 2] in [f"Could not unregister with HEB.  HEN returned status {status:x}"
                                for status in bus_statuses]


def test_a_save_ends_well_beside_a_service_that_stands_still(hold_save):
    service, run, disk = hold_save(env=IMPATIENT)
    with service.standing_still():
        expect_end(run, disk, 0, STOPPED)
        (saved,) = servedrun.history(run.body)
        assert saved[1] == "0"
    assert service.holds_nothing()


def test_a_save_ends_well_beside_a_service_that_died(held_save):
    service, run, disk = held_save
    service.kill()
    expect_end(run, disk, 0, DEAD)
    assert servedrun.history(run.body)[0][1] == "0"


def test_a_held_change_ends_the_save_of_a_service_that_stands_still(hold_save):
    service, run, disk = hold_save(env=IMPATIENT)
    change = service.change("active", "--forced")
    run.wait_for_line(ACCEPTED)
    with service.standing_still():
        expect_end(run, disk, 1, STOPPED)
        assert run.failed_with(20826)
    assert finished(change)[0] == 0 and service.pool_state() == "active"
    assert service.holds_nothing()


def test_a_held_change_ends_the_save_of_a_service_that_died(held_save):
    service, run, disk = held_save
    change = service.change("active", "--forced")
    run.wait_for_line(ACCEPTED)
    service.kill()
    expect_end(run, disk, 1, DEAD)
    assert run.failed_with(20826)
    assert finished(change)[0] == 2


def test_a_service_that_comes_back_knows_nothing_of_a_save(held_save, serve):
    service, run, disk = held_save
    service.kill()
    again = serve(socket=service.socket)
    assert "OSTREL" not in again.control("state", POOL, "active")
    disk.go_on()
    assert run.wait_exit() == 0
    assert again.exchange_kinds() == ["state"]


def test_a_service_that_stands_still_for_a_while_is_not_missed(held_save):
    service, run, disk = held_save
    with service.standing_still():
        time.sleep(0.3)
    disk.go_on()
    assert run.wait_exit() == 0
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.HELD_RUN


def test_a_run_that_is_killed_holds_nothing(held_save):
    service, run, disk = held_save
    change = service.change("active", "--forced")
    run.wait_for_line(ACCEPTED)
    os.kill(run.pid, signal.SIGKILL)
    disk.go_on()
    status, words = finished(change)
    assert status == 0 and words.startswith("  OSTREL.PoolLock is gone\n")
    assert service.holds_nothing() and service.pool_state() == "active"


def test_a_slow_question_after_a_run_was_killed_leaves_no_open_file(serve, device, tmp_path):
    service = serve()
    service.control("fault", "slow", "60000")
    with service.save(tmp_path, device) as run:
        assert servedrun.wait_until(lambda: service.traced("reply"))
        os.kill(run.pid, signal.SIGKILL)
        assert run.terminal.wait_exit(20) == -signal.SIGKILL
    assert service.holds_nothing()
