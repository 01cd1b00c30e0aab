"""Changes of the pool's state while it is saved: a change that may be refused is, and any other
ends the save and waits until the pool has been let go."""

import re

import pytest

import loopdev
import poolTypes
import scanset
import servedrun
from servedrun import ACCEPTED, POOL, VETOED, finished, handler_line

# A block in the middle of the sample pool's one scan file.
MIDDLE = "2000"
ENDED_BY_CHANGE = "Could not complete scan of pool - 20826"
VETO = "  OSTREL.PoolLock answered 0xFFFF00 with 20880\n"
PASSED = "  OSTREL.PoolLock answered 0x0\n"


def expect_ended_by_change(service, run):
    assert run.wait_exit() == 1
    assert run.message == ENDED_BY_CHANGE
    assert run.failed_with(20826)
    body = run.body
    assert body[body.index("DumpScanHistory Done ") + 1:] == [
        f"util/ostrelscan/scanUI[497] {ENDED_BY_CHANGE}",
        "util/ostrelscan/scanUI[506]Status is 515a", "deleting the UI_ScreenID object"]
    assert service.holds_nothing() and service.one_file_at_a_time()


def expect_cut_file(run, flags):
    """The one scan file is whole, as far as it goes, and says why it ends."""
    (file,) = scanset.read_set(run.folder)
    assert file.problems == [] and file.header["flags"] == flags
    count = len(file.records)
    assert 0 < count < 1000
    assert servedrun.history(run.body) == [
        [f"./{file.path.name}", "20826", str(file.header["crc"]), "2555", str(count)]]


def test_a_refusable_change_is_refused_and_the_save_goes_on(held_save, sample):
    service, run, disk = held_save
    for state in ("active", "deactive", "degraded"):
        status, words = finished(service.change(state))
        assert status == 1
        assert re.fullmatch(
            rf"{VETO}pool DATA: refused by OSTREL.PoolLock with 20880 after \d+ ms\n", words)
        assert service.pool_state() == "maintenance"
    disk.go_on()
    assert run.wait_exit() == 0
    assert run.count(VETOED) == 3 and run.last_words == ""
    (file,) = scanset.read_set(run.folder)
    assert file.problems == [] and file.header["flags"] == scanset.LAST_FILE
    assert file.records[-1][0] == sample.blocks - 1
    assert service.holds_nothing()


@pytest.mark.parametrize("options, flags", [((), 0x010), (("--compress",), 0x051)],
                         ids=["raw", "compressed"])
def test_a_forced_change_during_a_file_ends_the_save(serve, slow_device, tmp_path, options, flags):
    service = serve()
    device, disk = slow_device(MIDDLE)
    with service.save(tmp_path, device, *options) as run:
        disk.wait_for_pause()
        run.wait_until_stuck()
        change = service.change("active", "--forced")
        run.wait_for_line(ACCEPTED)
        assert change.poll() is None and service.pool_state() == "maintenance"
        disk.go_on()
        expect_ended_by_change(service, run)
        expect_cut_file(run, flags)
    status, words = finished(change)
    assert status == 0
    assert re.fullmatch(rf"{PASSED}pool DATA: now active after \d+ ms\n", words)
    assert service.answered_at_the_unlock()
    assert service.exchange_kinds()[-4:] in (["event", "unregister", "answer", "state"],
                                             ["event", "answer", "unregister", "state"],
                                             ["event", "answer", "state", "unregister"])


def test_a_held_change_goes_on_within_200_ms_of_the_unlock(serve, slow_device, tmp_path):
    """A busy machine only ever adds to the delay: the best of a few attempts is the tool's own."""
    service = serve()
    device, disk = slow_device(MIDDLE)
    delays = []
    while len(delays) < 5 and not any(delay < 0.2 for delay in delays):
        disk.command(f"pause {MIDDLE}")
        loopdev.drop_caches(device, disk.disk)
        with service.save(tmp_path, device) as run:
            disk.wait_for_pause()
            run.wait_until_stuck()
            event = service.event("--mode", "0")
            run.wait_for_line(ACCEPTED)
            assert event.poll() is None
            disk.go_on()
            expect_ended_by_change(service, run)
        assert finished(event) == (0, f"{PASSED}{servedrun.POOL_STATE}: delivered to 1\n")
        delays.append(service.answer_delay())
    assert min(delays) < 0.2, delays


@pytest.mark.parametrize("mode", ["0", "7", "0xFFFFFFFFFFFFFFF7"])
def test_a_change_is_forced_whatever_else_its_mode_says(held_save, mode):
    service, run, disk = held_save
    event = service.event("--mode", mode)
    run.wait_for_line(ACCEPTED)
    disk.go_on()
    expect_ended_by_change(service, run)
    assert finished(event) == (0, f"{PASSED}{servedrun.POOL_STATE}: delivered to 1\n")
    assert service.answered_at_the_unlock()


@pytest.mark.parametrize("mode", ["8", "15", "0xFFFFFFFFFFFFFFFF"])
def test_a_change_is_refusable_whatever_else_its_mode_says(held_save, mode):
    service, run, disk = held_save
    assert finished(service.event("--mode", mode)) == (
        1, f"{VETO}{servedrun.POOL_STATE}: delivered to 1\n")
    disk.go_on()
    assert run.wait_exit() == 0 and run.count(VETOED) == 1


@pytest.mark.parametrize("states", [("2", "6"), ("0", "1"), ("6", "3"), ("65535", "0")],
                         ids="-".join)
def test_which_states_a_change_is_between_does_not_matter(held_save, states):
    service, run, disk = held_save
    status, _ = finished(service.event("--from", states[0], "--to", states[1]))
    assert status == 1
    disk.go_on()
    assert run.wait_exit() == 0 and run.count(VETOED) == 1


OTHER_POOL = "01234567-89ab-0cde-8f-10-112233445567"
IGNORED = [
    (("--guid", OTHER_POOL), "not the pool we care about."),
    (("--guid", OTHER_POOL, "--from", "3", "--to", "3"), "not the pool we care about."),
    (("--from", "3", "--to", "3"), "pool state did not change."),
    (("--from", "65535", "--to", "65535"), "pool state did not change."),
    (("--notify", "4"), "not a EBEventNotifyType(4) we care about."),
    (("--notify", "0"), "not a EBEventNotifyType(0) we care about."),
    (("--notify", "26"), "not a EBEventNotifyType(1a) we care about."),
    (("--notify", "8", "--guid", OTHER_POOL), "not a EBEventNotifyType(8) we care about."),
]


@pytest.mark.parametrize("mode", ["0", "8"], ids=["forced", "refusable"])
def test_events_that_do_not_concern_the_pool_are_let_pass(held_save, mode):
    service, run, disk = held_save
    for options, line in IGNORED:
        before = run.count(handler_line(line))
        assert finished(service.event("--mode", mode, *options)) == (
            0, f"{PASSED}{servedrun.POOL_STATE}: delivered to 1\n")
        assert run.count(handler_line(line)) == before + 1
    disk.go_on()
    assert run.wait_exit() == 0
    assert sum(servedrun.HANDLER in line for line in run.lines) == len(IGNORED)


def test_events_of_other_kinds_do_not_reach_the_tool(held_save):
    service, run, disk = held_save
    for event in ("OSTREL.ChangeVolState.Enter", "OSTREL.PoolRename.Enter",
                  "OSTREL.LVolumeDelete.Exit"):
        assert service.control("event", event, "--guid", servedrun.POOL_GUID) == (
            f"{event}: delivered to 0\n")
    disk.go_on()
    assert run.wait_exit() == 0 and servedrun.HANDLER not in run.log


def test_several_forced_changes_are_all_let_go(held_save):
    service, run, disk = held_save
    first = service.event("--mode", "0")
    run.wait_for_line(ACCEPTED)
    others = [service.event("--mode", "0", "--to", "2") for _ in range(3)]
    assert servedrun.wait_until(lambda: len(service.traced("event")) == 4)
    assert all(event.poll() is None for event in (first, *others))
    disk.go_on()
    expect_ended_by_change(service, run)
    for event in (first, *others):
        assert finished(event) == (0, f"{PASSED}{servedrun.POOL_STATE}: delivered to 1\n")
    assert service.answered_at_the_unlock()
    expect_cut_file(run, 0x010)


def test_a_refusable_change_behind_a_forced_one_is_let_go_too(held_save):
    service, run, disk = held_save
    forced = service.event("--mode", "0")
    run.wait_for_line(ACCEPTED)
    refusable = service.event("--mode", "8")
    assert servedrun.wait_until(lambda: len(service.traced("event")) == 2)
    disk.go_on()
    expect_ended_by_change(service, run)
    assert [finished(event)[0] for event in (forced, refusable)] in ([0, 0], [0, 1])


def test_one_forced_change_after_the_other_each_ends_a_save(serve, slow_device, tmp_path):
    service = serve()
    device, disk = slow_device(MIDDLE)
    for state in ("active", "deactive"):
        with service.save(tmp_path, device) as run:
            disk.wait_for_pause()
            run.wait_until_stuck()
            change = service.change(state, "--forced")
            run.wait_for_line(ACCEPTED)
            disk.go_on()
            expect_ended_by_change(service, run)
            expect_cut_file(run, 0x010)
        assert finished(change)[0] == 0 and service.pool_state() == state
        service.control("state", POOL, "maintenance")
        disk.command(f"pause {MIDDLE}")
        loopdev.drop_caches(device, disk.disk)
    disk.command("clear")
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert service.holds_nothing() and service.one_file_at_a_time()


@pytest.fixture(scope="session")
def two_file_image(sample, tmp_path_factory):
    """A pool whose first scan file is full long before the next block that is saved."""
    internal = next(block for number, block in poolTypes.blocks(sample.path)
                    if number > 1 and poolTypes.classify(block) == "BT branch")
    superblock = dict(zip(range(2), (block for _, block in poolTypes.blocks(sample.path))))
    image = tmp_path_factory.mktemp("pool") / "image"
    with open(image, "wb") as file:
        file.write(superblock[0] + superblock[1] + internal * (scanset.FULL_FILE_RECORDS - 1))
        file.truncate(4000 * 4096)
        file.seek(3500 * 4096)
        file.write(internal * 500)
    return image


def test_a_forced_change_between_two_files_ends_the_save_with_an_empty_one(
        serve, slow_device, two_file_image, tmp_path):
    service = serve()
    device, disk = slow_device("3500", two_file_image)
    with service.save(tmp_path, device) as run:
        disk.wait_for_pause()
        run.wait_until_stuck()
        assert run.terminal.wait_for("T0000001.ZSB     0 of 2555")
        change = service.change("active", "--forced")
        run.wait_for_line(ACCEPTED)
        disk.go_on()
        expect_ended_by_change(service, run)
        first, second = scanset.read_set(tmp_path)
        assert (len(first.records), first.header["flags"]) == (2555, 0)
        assert (len(second.records), second.header["flags"]) == (0, 0x010)
        assert first.problems == second.problems == []
        assert servedrun.history(run.body) == [
            ["./T0000000.ZSB", "0", str(first.header["crc"]), "2555", "2555"],
            ["./T0000001.ZSB", "20826", "4294967295", "2555", "0"]]
    assert finished(change)[0] == 0 and service.answered_at_the_unlock()


# The registration stands before the state is asked: a change that starts in between is caught. The
# run waits for the answer until the fault is cleared.
def begin_slowly(service, tmp_path, device):
    service.control("fault", "slow", "60000", "--after", "1")
    run = service.save(tmp_path, device)
    assert service.registered() and service.answers_slowly()
    return run


def test_a_forced_change_before_the_first_block_ends_the_save(serve, device, tmp_path):
    service = serve()
    with begin_slowly(service, tmp_path, device) as run:
        change = service.change("active", "--forced")
        run.wait_for_line(ACCEPTED)
        service.control("fault", "clear")
        expect_ended_by_change(service, run)
    (file,) = scanset.read_set(tmp_path)
    assert (file.header["flags"], file.records, file.problems) == (0x010, [], [])
    assert servedrun.history(run.body) == [["./T0000000.ZSB", "20826", "4294967295", "2555", "0"]]
    assert finished(change)[0] == 0 and service.answered_at_the_unlock()


def test_a_refusable_change_before_the_first_block_is_refused(serve, device, tmp_path):
    service = serve()
    with begin_slowly(service, tmp_path, device) as run:
        assert finished(service.change("active"))[0] == 1
        service.control("fault", "clear")
        assert run.wait_exit() == 0
    assert run.count(VETOED) == 1 and service.holds_nothing()


def test_a_forced_change_is_let_go_when_the_state_is_wrong(serve, device, tmp_path):
    service = serve("active")
    with begin_slowly(service, tmp_path, device) as run:
        change = service.change("deactive", "--forced")
        run.wait_for_line(ACCEPTED)
        service.control("fault", "clear")
        assert run.wait_exit() == 1
    assert run.message.endswith("Pool is not in MAINTENANCE state")
    assert finished(change)[1].startswith(PASSED) and service.answered_at_the_unlock()
    assert service.holds_nothing() and service.pool_state() == "deactive"


def test_a_forced_change_is_let_go_when_the_state_cannot_be_asked(serve, device, tmp_path):
    service = serve()
    service.control("fault", "eio-read", "--after", "1")
    with begin_slowly(service, tmp_path, device) as run:
        change = service.change("active", "--forced")
        run.wait_for_line(ACCEPTED)
        service.control("fault", "clear")
        assert run.wait_exit() == 1
    assert run.message == "Could not lock pool into MAINTENANCE state:  Could not read"
    assert finished(change)[1].startswith(PASSED)
    assert service.holds_nothing() and service.exchange_kinds()[-1] in ("drop", "state")
    assert "unregister" not in service.exchange_kinds()


def test_changes_before_the_registration_and_after_its_end_meet_nobody(serve, device, tmp_path):
    service = serve("active")
    assert re.fullmatch(r"pool DATA: now maintenance after \d+ ms\n",
                        service.control("state", POOL, "maintenance"))
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert service.holds_nothing()
    assert re.fullmatch(r"pool DATA: now active after \d+ ms\n",
                        service.control("state", POOL, "active"))
    assert servedrun.HANDLER not in run.log
