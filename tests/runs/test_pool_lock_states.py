"""A run holds its pool in the state of maintenance alone, and asks no more than it must."""

import time

import pytest

import scanset
import servedrun

NOT_IN_MAINTENANCE = "Pool is not in MAINTENANCE state"
OTHER_STATES = ["active", "deactive", "mounted", "degraded", "Maintenance", "maintenance2"]


def test_a_pool_in_maintenance_is_saved_under_the_lock(serve, device, sample, tmp_path):
    service = serve()
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert run.last_words == "" and run.message == ""
    (file,) = scanset.read_set(tmp_path)
    assert file.problems == [] and len(file.records) == int(servedrun.history(run.body)[0][4])
    assert file.header["flags"] == scanset.LAST_FILE
    assert run.body == [
        *servedrun.options_of(device), "In RunDumpMain(start)",
        f"Blocks in pool is {sample.blocks}", "util/ostrelscan/scanEngine[470]",
        "In RunDumpMain(exit)", f"UI - {sample.blocks:x} Dumped  {len(file.records):x}", "Done ",
        "", "Current Scan File History:",
        f"./T0000000.ZSB\t0\t{file.header['crc']}\t2555\t{len(file.records)}", "",
        "DumpScanHistory Done ", "util/ostrelscan/scanUI[506]Status is 0",
        "deleting the UI_ScreenID object"]
    assert service.holds_nothing() and service.pool_state() == "maintenance"


def test_a_run_asks_twice_and_each_time_with_the_same_bytes(serve, device, tmp_path):
    service = serve()
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert service.holds_nothing()
    assert service.exchange_kinds() == servedrun.HELD_RUN
    assert service.spoken("switch") == ['<virtualIO><datastream name="command"/></virtualIO>'] * 2
    assert service.spoken("request") == [
        '<ostrelRequest><pool><getPoolInfo> type="basic"><poolName>DATA</poolName></getPoolInfo>'
        "</pool></ostrelRequest>"] * 2
    (registration,) = service.traced("register")
    assert registration.startswith(
        "register: OSTREL.PoolLock for OSTREL.ChangePoolState.Enter, handle 0x")
    assert registration.endswith(f", process {run.pid}")
    assert service.traced("unregister") == ["un" + registration]


def test_no_second_management_file_is_open_beside_the_first(serve, device, tmp_path):
    service = serve()
    service.control("fault", "slow", "60000")
    with service.save(tmp_path, device) as run:
        assert service.answers_slowly() and len(service.listed("open management")) == 1
        service.control("fault", "clear")
        assert run.wait_exit() == 0
    assert service.holds_nothing() and service.one_file_at_a_time()


@pytest.mark.parametrize("state", OTHER_STATES)
def test_a_pool_in_another_state_is_not_saved(serve, device, sample, tmp_path, state):
    service = serve(state)
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 1
    assert run.message == f"Could not lock pool into MAINTENANCE state:  {NOT_IN_MAINTENANCE}"
    assert run.failed_with(1)
    assert run.body == servedrun.refused_save_log(device, sample.blocks, NOT_IN_MAINTENANCE)
    assert list(tmp_path.glob("*.ZSB")) == []
    assert service.holds_nothing() and service.pool_state() == state
    assert service.exchange_kinds() == servedrun.HELD_RUN


def test_a_pool_that_the_service_does_not_know_is_not_saved(serve, device, sample, tmp_path):
    service = serve()
    with service.save(tmp_path, device, pool="other") as run:
        assert run.wait_exit() == 1
    assert run.message == "Could not lock pool into MAINTENANCE state:  getPoolInfo results"
    assert run.failed_with(1)
    reply = ('<ostrelReply><result value="0"/><pool><getPoolInfo><result value="20444"/>'
             "</getPoolInfo></pool></ostrelReply>")
    assert run.body == servedrun.refused_save_log(
        device, sample.blocks, "getPoolInfo results", [f"util/common/tXML[1400]{reply}"],
        pool="OTHER")
    assert service.spoken("request") == [servedrun.pool_info_request("OTHER")]
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.QUERY


def test_a_pool_is_known_to_the_service_by_its_name_in_upper_case(serve, device, tmp_path):
    service = serve()
    with service.save(tmp_path, device, pool="data") as run:
        assert run.wait_exit() == 0
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.HELD_RUN


def test_a_run_that_bypasses_the_service_does_not_speak_to_it(serve, device, tmp_path):
    service = serve("active")
    with service.save(tmp_path, device, "--bypass-ostrel") as run:
        assert run.wait_exit() == 0
    assert scanset.read_set(tmp_path)[0].header["flags"] == scanset.LAST_FILE | scanset.BYPASSED
    assert service.exchange_kinds() == []


def test_a_slow_service_delays_only_the_start(serve, device, tmp_path):
    service = serve()
    service.control("fault", "slow", "200", "--next", "2")
    begin = time.monotonic()
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert 0.4 <= servedrun.elapsed(begin) < 30
    switched, closed = service.seconds_of("switch"), service.seconds_of("flush")
    # The trace is rounded, and so is the difference of two of its figures.
    assert all(end - start > 0.198 for start, end in zip(switched, closed, strict=True))
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.HELD_RUN


@pytest.mark.parametrize("size", [2048, 2049, 4096, 100_000])
def test_a_reply_is_read_whole_whatever_its_size(serve, device, tmp_path, size):
    service = serve()
    service.control("fault", "size", str(size), "--next", "2")
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert [line.split(" ")[6] for line in service.traced("reply")] == [str(size)] * 2
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.HELD_RUN


def test_a_bad_superblock_lets_the_pool_go_again(serve, loop, tmp_path):
    service = serve()
    image = tmp_path / "image"
    with open(image, "wb") as file:
        file.truncate(1 << 20)
    with loop(image) as empty, service.save(tmp_path, empty) as run:
        assert run.wait_exit() == 1
    assert run.message == (
        "OSTREL Pool superblock header validation error:  Pool's superblock did not validate "
        "(ensure that the correct device was given)")
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.HELD_RUN
