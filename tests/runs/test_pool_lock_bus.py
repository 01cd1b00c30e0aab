"""The bus library itself: absent, broken, refusing, without its service, mute, or never at rest."""

import re
import shutil
import socket
import time

import pytest

import ostrelscan
import servedrun

EVENT = "OSTREL.ChangePoolState.Enter"
UNHELD = "Unable to ensure pool stays in requested state"
NOT_REGISTERED = [f"Exception while registering for HEB event {EVENT}:  HEB register error",
                  "util/common/heb[635]"]
NOT_UNREGISTERED = ("util/common/heb[225] Could not unregister from HEB "
                    "Could not unregister with HEB")


def unregister_status(status):
    return f"Could not unregister with HEB.  HEN returned status {status:x}"


def not_loaded(reason):
    return f'util/common/heb[118] Could not load libhebus because of "{reason}"'


ABSENT = not_loaded("libhebus.so: cannot open shared object file: No such file or directory")


def expect_unheld(service, run, device, sample, channel):
    """Without a registration the state is not even asked for."""
    assert run.wait_exit() == 1
    assert run.message == f"Could not lock pool into MAINTENANCE state:  {UNHELD}"
    assert run.failed_with(1)
    assert run.body == servedrun.refused_save_log(device, sample.blocks, UNHELD, channel)
    assert service.holds_nothing() and service.pool_state() == "maintenance"


def test_a_run_without_the_bus_library_says_what_the_loader_says(serve, device, sample, tmp_path):
    service = serve()
    with service.save(tmp_path, device, env={"LD_LIBRARY_PATH": None}) as run:
        expect_unheld(service, run, device, sample, [ABSENT, *NOT_REGISTERED])
    assert service.exchange_kinds() == servedrun.QUERY


def test_a_bypassing_run_does_not_miss_the_bus_library(serve, device, tmp_path):
    service = serve()
    with service.save(tmp_path, device, "--bypass-ostrel", env={"LD_LIBRARY_PATH": None}) as run:
        assert run.wait_exit() == 0
    assert "libhebus" not in run.log


def test_a_bus_library_that_is_no_library(serve, device, sample, tmp_path):
    service = serve()
    library = tmp_path / "libhebus.so"
    library.write_text("no library")
    with service.save(tmp_path, device, env={"LD_LIBRARY_PATH": str(tmp_path)}) as run:
        expect_unheld(service, run, device, sample,
                      [not_loaded(f"{library}: file too short"), *NOT_REGISTERED])


def test_a_bus_library_without_the_entry_points(serve, device, sample, tmp_path):
    service = serve()
    library = tmp_path / "libhebus.so"
    shutil.copy(ostrelscan.helper("libsizepreload.so"), library)
    with service.save(tmp_path, device, env={"LD_LIBRARY_PATH": str(tmp_path)}) as run:
        expect_unheld(
            service, run, device, sample,
            [not_loaded(f"{library}: undefined symbol: userHebUnRegisterConsumer"),
             *NOT_REGISTERED])


@pytest.mark.parametrize("status", ["1", "20008", "4294967295"])
def test_a_refused_registration(serve, device, sample, tmp_path, status):
    service = serve()
    service.control("fault", "bus-refuse", status)
    with service.save(tmp_path, device) as run:
        expect_unheld(service, run, device, sample, NOT_REGISTERED)
    assert service.exchange_kinds() == [*servedrun.QUERY, "refused register"]


def test_only_the_low_half_of_a_status_counts(serve, device, tmp_path):
    service = serve()
    service.control("fault", "bus-refuse-unregister", str(7 << 32))
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert "HEN returned" not in run.log
    assert service.exchange_kinds() == [*servedrun.HELD_RUN[:-1], "refused unregister", "drop"]


def test_a_library_without_its_service(serve, device, sample, tmp_path):
    service = serve()
    with service.save(tmp_path, device, env={"OSTRELSIM_SOCKET": str(tmp_path / "none")}) as run:
        expect_unheld(service, run, device, sample, NOT_REGISTERED)
    assert service.exchange_kinds() == servedrun.QUERY


def test_a_bus_that_never_answers_delays_a_run_for_a_while(serve, device, sample, tmp_path):
    service = serve()
    begin = time.monotonic()
    with socket.socket(socket.AF_UNIX) as mute:
        mute.bind(str(tmp_path / "mute"))
        mute.listen()
        with service.save(tmp_path, device,
                          env={"OSTRELSIM_SOCKET": str(tmp_path / "mute"),
                               "OSTRELSIM_PATIENCE": "300"}) as run:
            expect_unheld(service, run, device, sample, NOT_REGISTERED)
    assert 0.3 <= servedrun.elapsed(begin) < 15


# What was saved was saved under the lock, so a registration that stays behind is told and no more:
# it ends with the process.
@pytest.mark.parametrize("status", [20401, 10])
def test_a_refused_unregistration_is_told_and_no_more(serve, device, tmp_path, status):
    service = serve()
    service.control("fault", "bus-refuse-unregister", str(status))
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    at = run.body.index("In RunDumpMain(exit)")
    assert run.body[at - 2:at] == [unregister_status(status), NOT_UNREGISTERED]
    assert service.holds_nothing()
    assert service.exchange_kinds() == [*servedrun.HELD_RUN[:-1], "refused unregister", "drop"]


def test_a_refused_unregistration_does_not_change_what_a_wrong_state_is(serve, device, sample,
                                                                        tmp_path):
    service = serve("active")
    service.control("fault", "bus-refuse-unregister")
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 1
    assert run.body == servedrun.refused_save_log(
        device, sample.blocks, "Pool is not in MAINTENANCE state",
        [unregister_status(20401), NOT_UNREGISTERED])
    assert service.holds_nothing()


# The bus delivers forced changes before the registration is complete, while it is taken away and
# later, up to the end of the process.
@pytest.mark.parametrize("state, status", [("maintenance", 0), ("active", 1)])
def test_events_outside_of_a_registration_are_let_pass(serve, device, tmp_path, state, status):
    service = serve(state)
    restless = str(ostrelscan.helper("busRestless"))
    with service.save(tmp_path, device, env={"LD_LIBRARY_PATH": restless}) as run:
        assert run.wait_exit() == status
    assert "HEB register" not in run.log and "HEN returned" not in run.log
    lines = run.body
    start = lines.index("util/ostrelscan/scanEngine[470]")
    assert re.fullmatch(servedrun.EARLY, lines[start + 1])
    assert run.count(servedrun.EARLY) >= 2
    if status == 0:
        (saved,) = servedrun.history(run.body)
        assert saved[1] == "0" and int(saved[4]) > 0


def test_a_restless_bus_does_not_disturb_many_ends(serve, device, tmp_path):
    service = serve("active")
    restless = str(ostrelscan.helper("busRestless"))
    for _ in range(10):
        with service.save(tmp_path, device, env={"LD_LIBRARY_PATH": restless}) as run:
            assert run.wait_exit() == 1
        assert run.failed_with(1)
