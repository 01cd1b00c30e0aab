"""A restore holds its pool as a save does; a forced change ends it at the end of a scan file."""

import contextlib
import hashlib

import pytest

import loopdev
import poolTypes
import scanset
import servedrun
from servedrun import (ACCEPTED, OPEN_FAILURE, POOL, VETOED, WRITE_RESULT, finished, handler_line)

PER_FILE = 100
ENDED_BY_CHANGE = "Could not restore complete pool - 20826"


def digest(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


@pytest.fixture(scope="session")
def records(pool):
    """Three scan files of blocks that differ from the sample pool's."""
    blocks = [(number, block) for number, block in poolTypes.blocks(pool(size="16M", seed=2).path)
              if number > 1 and poolTypes.classify(block) not in ("User", "MSAP")]
    return blocks[:3 * PER_FILE]


@pytest.fixture
def restorable(loop, sample, records, tmp_path):
    """A device to restore to, with a set to restore beside it: (device, its image)."""
    image = sample.copy_to(tmp_path / "image")
    scanset.write_set(tmp_path, records, per_file=PER_FILE, pool_name=POOL)
    with loop(image) as device:
        yield device, image


def restored(image, records):
    """How many of the records stand on the image, in order; none may follow behind the first that
    does not."""
    found = dict(poolTypes.blocks(image))
    there = [found[number] == block for number, block in records]
    count = there.index(False) if False in there else len(there)
    assert not any(there[count:])
    return count


def test_a_pool_in_maintenance_is_restored_under_the_lock(serve, restorable, records, tmp_path):
    service = serve()
    device, image = restorable
    with service.restore(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert restored(image, records) == len(records)
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.HELD_RUN
    assert service.spoken("switch") == [servedrun.SWITCH_TEXT] * 2
    assert service.spoken("request") == [servedrun.pool_info_request()] * 2


def test_a_restore_that_bypasses_the_service_does_not_speak_to_it(serve, restorable, tmp_path):
    service = serve("active")
    with service.restore(tmp_path, restorable[0], "--bypass-ostrel") as run:
        assert run.wait_exit() == 0
    assert service.exchange_kinds() == []


NOT_REGISTERED = ["Exception while registering for HEB event OSTREL.ChangePoolState.Enter:  "
                  "HEB register error", "util/common/heb[635]"]
UNHELD = "Unable to ensure pool stays in requested state"
UNKNOWN = ('util/common/tXML[1400]<ostrelReply><result value="0"/><pool><getPoolInfo>'
           '<result value="20444"/></getPoolInfo></pool></ostrelReply>')


def expect_untouched(service, restorable, tmp_path, reason, *channel, env=None):
    device, image = restorable
    before = digest(image)
    with service.restore(tmp_path, device, env=env) as run:
        assert run.wait_exit() == 1
    assert run.message == f"Pool state issue:  {reason}".rstrip() and run.failed_with(1)
    assert run.body == servedrun.refused_restore_log(reason, channel)
    assert service.holds_nothing()
    loopdev.drop_caches(device)
    assert digest(image) == before


@pytest.mark.parametrize("state", ["active", "deactive", "mounted", "degraded"])
def test_a_pool_in_another_state_is_not_touched(serve, restorable, tmp_path, state):
    expect_untouched(serve(state), restorable, tmp_path, "Pool is not in MAINTENANCE state")


def test_a_pool_that_the_service_does_not_know_is_not_touched(serve, restorable, tmp_path):
    expect_untouched(serve(None), restorable, tmp_path, "getPoolInfo results", UNKNOWN)


def test_a_refused_question_leaves_the_pool_alone(serve, restorable, tmp_path):
    service = serve()
    service.control("fault", "refuse", "--after", "1")
    expect_untouched(service, restorable, tmp_path, "Could not read because of a write error ",
                     f'{WRITE_RESULT}"20401"')
    assert service.exchange_kinds() == [*servedrun.QUERY, "register", *servedrun.QUERY, "drop"]


def test_a_malformed_reply_leaves_the_pool_alone(serve, restorable, tmp_path):
    service = serve()
    service.control("fault", "malformed")
    expect_untouched(service, restorable, tmp_path, "Unable to parse XML tag <ostrelReply>")


def test_a_management_file_that_does_not_open_leaves_the_pool_alone(serve, restorable, tmp_path):
    service = serve()
    service.control("fault", "eio-open")
    expect_untouched(service, restorable, tmp_path, "Could not open command file",
                     f'{OPEN_FAILURE}"Input/output error"')


def test_a_refused_registration_leaves_the_pool_alone(serve, restorable, tmp_path):
    service = serve()
    service.control("fault", "bus-refuse")
    expect_untouched(service, restorable, tmp_path, UNHELD, *NOT_REGISTERED)


def test_an_absent_bus_library_leaves_the_pool_alone(serve, restorable, tmp_path):
    absent = ('util/common/heb[118] Could not load libhebus because of "libhebus.so: cannot open '
              'shared object file: No such file or directory"')
    expect_untouched(serve(), restorable, tmp_path, UNHELD, absent, *NOT_REGISTERED,
                     env={"LD_LIBRARY_PATH": None})


@pytest.fixture
def restoring(serve, restorable, tmp_path):
    """A restore that stands still at the start of its second scan file: (service, run, disk)."""
    second = tmp_path / scanset.file_name(1, suffix="ZRB")
    second.rename(tmp_path / "second")
    with loopdev.fault_disk(tmp_path / "second", tmp_path / "mnt", "pause=0") as disk:
        second.symlink_to(disk.disk)
        # Services share no mounts with a disk that comes later.
        service = serve()
        with contextlib.ExitStack() as end, service.restore(tmp_path, restorable[0]) as run:
            end.callback(disk.go_on)
            disk.wait_for_pause()
            yield service, run, disk
            disk.go_on()


def test_a_forced_change_ends_a_restore_at_the_end_of_a_file(restoring, restorable, records):
    service, run, disk = restoring
    change = service.change("active", "--forced")
    run.wait_for_line(ACCEPTED)
    assert change.poll() is None and service.pool_state() == "maintenance"
    disk.go_on()
    assert run.wait_exit() == 1
    assert run.message == ENDED_BY_CHANGE and run.failed_with(20826)
    body = run.body
    unknown = str(2**64 - 1)
    assert servedrun.history(body) == [
        ["./T0000000.ZRB", "0", unknown, str(PER_FILE), str(PER_FILE)],
        ["./T0000001.ZRB", "20826", unknown, str(PER_FILE), str(PER_FILE)]]
    assert body[body.index("In RunRestoreMain(exit)"):] == [
        "In RunRestoreMain(exit)", "Done ", "", "Current Scan File History:",
        *("\t".join(line) for line in servedrun.history(body)), "", "DumpScanHistory Done ",
        f"util/ostrelscan/scanUI[727] {ENDED_BY_CHANGE}", "deleting the UI_ScreenID object"]
    status, words = finished(change)
    assert status == 0 and words.startswith("  OSTREL.PoolLock answered 0x0\n")
    assert service.answered_at_the_unlock()
    assert service.holds_nothing() and service.exchange_kinds().count("request") == 2
    assert restored(restorable[1], records) == 2 * PER_FILE


def test_a_refusable_change_is_refused_and_the_restore_goes_on(restoring, restorable, records):
    service, run, disk = restoring
    status, words = finished(service.change("active"))
    assert status == 1 and words.startswith("  OSTREL.PoolLock answered 0xFFFF00 with 20880\n")
    disk.go_on()
    assert run.wait_exit() == 0 and run.count(VETOED) == 1
    assert service.holds_nothing() and service.pool_state() == "maintenance"
    assert restored(restorable[1], records) == len(records)


def test_events_that_do_not_concern_the_pool_leave_a_restore_alone(restoring, restorable, records):
    service, run, disk = restoring
    for options, line in (
            (("--guid", "01234567-89ab-0cde-8f-10-112233445567"), "not the pool we care about."),
            (("--to", "3"), "pool state did not change."),
            (("--notify", "4"), "not a EBEventNotifyType(4) we care about.")):
        assert finished(service.event("--mode", "0", *options))[0] == 0
        assert run.count(handler_line(line)) == 1
    disk.go_on()
    assert run.wait_exit() == 0
    assert restored(restorable[1], records) == len(records)


def test_a_forced_change_before_the_first_file_is_noticed_at_its_end(serve, restorable, records,
                                                                     tmp_path):
    service = serve()
    service.control("fault", "slow", "60000", "--after", "1")
    with service.restore(tmp_path, restorable[0]) as run:
        assert service.registered() and service.answers_slowly()
        change = service.change("active", "--forced")
        run.wait_for_line(ACCEPTED)
        service.control("fault", "clear")
        assert run.wait_exit() == 1
    assert run.failed_with(20826)
    assert [line[:2] for line in servedrun.history(run.body)] == [["./T0000000.ZRB", "20826"]]
    assert finished(change)[0] == 0 and service.answered_at_the_unlock()
    assert restored(restorable[1], records) == PER_FILE
