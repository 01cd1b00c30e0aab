import concurrent.futures
import subprocess
import time

import pytest

from simulation import (BUILD, POOL_GUID, POOL_GUID_BYTES, SOON, VOLUME_GUID, VOLUME_GUID_BYTES,
                        wait_until)

PATIENCE = 5  # seconds that the bus library waits for the service unless it is told otherwise
POOL_STATE = "OSTREL.ChangePoolState.Enter"
EVENTS = [POOL_STATE, "OSTREL.ChangeVolState.Enter", "OSTREL.PoolRename.Enter",
          "OSTREL.LVolumeRename.Enter", "OSTREL.LVolumeRename.Exit", "OSTREL.LVolumeDelete.Enter",
          "OSTREL.LVolumeDelete.Exit", "OSTREL.LVolZID64.Enter", "OSTREL.LVolZID64.Exit"]


def registrations(sim):
    return sim.listed("registration")


def pool_state(sim):
    return sim.listed("pool P")[0].split()[2]


@pytest.mark.parametrize("event", EVENTS)
def test_a_registration_is_known_until_it_is_removed(sim, event):
    consumer = sim.consumer()
    reply = consumer.register(event)
    assert reply["status"] == 0 and reply["handle"] != 0
    assert registrations(sim) == [
        f"registration of OSTREL.PoolLock for {event}, handle 0x{reply['handle']:x}, "
        f"context 0x1234567890, process {consumer.process.pid}"]
    assert consumer.do(do="unregister", handle=reply["handle"])["status"] == 0
    assert registrations(sim) == []


@pytest.mark.parametrize("wrong", [
    dict(patch=[(0, 2)]), dict(patch=[(0, 0)]), dict(patch=[(0, 1 + (1 << 32))]),
    dict(patch=[(0, 1 + (1 << 63))]), dict(patch=[(8, 0)]), dict(patch=[(16, 0)]),
    dict(patch=[(32, 1)]), dict(patch=[(40, 1)]), dict(patch=[(48, 0)]), dict(patch=[(56, 1)]),
    dict(patch=[(88, 1 << 63)]), dict(patch=[(96, 0)]), dict(patch=[(96, 4096)]),
    dict(patch=[(104, 2)]), dict(patch=[(104, 3 + (1 << 32))]),
    dict(patch=[(104, 3 + (1 << 63))]), dict(flags=1), dict(spoken="OSTREL.PoolRename.Enter"),
], ids=str)
def test_a_record_that_is_not_exact_is_refused(sim, wrong):
    consumer = sim.consumer()
    reply = consumer.register(POOL_STATE, **wrong)
    assert reply["status"] != 0 and reply["handle"] == 0
    assert registrations(sim) == []


def test_an_event_that_does_not_exist_is_refused(sim):
    assert sim.consumer().register("OSTREL.ChangePoolState.Exit")["status"] != 0


def test_a_removal_needs_handle_and_context(sim):
    consumer = sim.consumer()
    handle = consumer.register()["handle"]
    assert consumer.do(do="unregister", handle=handle, context=1)["status"] != 0
    assert consumer.do(do="unregister", handle=handle + 1)["status"] != 0
    assert len(registrations(sim)) == 1
    assert consumer.do(do="unregister", handle=handle)["status"] == 0
    assert consumer.do(do="unregister", handle=handle)["status"] != 0


def test_a_state_change_reaches_the_consumer_as_documented(sim):
    consumer = sim.consumer()
    consumer.register(context=0xFEDCBA9876543210)
    sim.control("state", "P", "active")
    event = consumer.next_event()
    assert event["thread"] != consumer.do(do="policy")["thread"]
    assert {key: event[key] for key in ("notify", "context", "refusal", "states", "mode", "guid")} == {
        "notify": 9, "context": 0xFEDCBA9876543210, "refusal": 0, "states": [3, 6], "mode": 8,
        "guid": POOL_GUID_BYTES.hex()}
    assert pool_state(sim) == "active"


def test_a_veto_keeps_the_state(sim):
    consumer = sim.consumer()
    consumer.register()
    consumer.do(do="policy", answer=0xFFFF00, refusal=20880)
    out = sim.control("state", "P", "active", status=1)
    assert out.startswith("  OSTREL.PoolLock answered 0xFFFF00 with 20880\n"
                          "pool P: refused by OSTREL.PoolLock with 20880 after ")
    assert pool_state(sim) == "maintenance"


def test_a_refusal_status_alone_is_no_veto(sim):
    consumer = sim.consumer()
    consumer.register()
    consumer.do(do="policy", answer=0, refusal=20880)
    sim.control("state", "P", "active")
    assert pool_state(sim) == "active"


def test_one_veto_of_several_consumers_is_enough(sim):
    agreeing, refusing = sim.consumer(), sim.consumer()
    agreeing.register(consumer="A")
    refusing.register(consumer="B")
    refusing.do(do="policy", answer=0xFFFF00, refusal=20880)
    assert "refused by B with 20880" in sim.control("state", "P", "active", status=1)
    assert agreeing.next_event()["guid"] == POOL_GUID_BYTES.hex()


def test_a_forced_change_waits_for_the_answer_and_cannot_be_refused(sim):
    consumer = sim.consumer()
    consumer.register()
    consumer.do(do="policy", answer=0xFFFF00, refusal=20880, hold=True)
    change = sim.start_control("state", "P", "deactive", "--forced")
    assert consumer.next_event()["mode"] == 0
    time.sleep(0.3)
    assert change.poll() is None and pool_state(sim) == "maintenance"
    consumer.do(do="policy", answer=0xFFFF00)
    out, _ = change.communicate(timeout=SOON)
    assert change.returncode == 0 and "pool P: now deactive after " in out
    assert int(out.split(" after ")[1].split()[0]) >= 300
    assert pool_state(sim) == "deactive"


def test_a_removal_does_not_wait_for_an_event_under_delivery(sim):
    consumer = sim.consumer()
    handle = consumer.register()["handle"]
    consumer.do(do="policy", hold=True)
    change = sim.start_control("state", "P", "active", "--forced")
    consumer.next_event()
    removal = consumer.do(do="unregister", handle=handle)
    assert removal["status"] == 0 and removal["seconds"] < PATIENCE
    assert registrations(sim) == [] and change.poll() is None
    consumer.do(do="policy")
    assert change.wait(timeout=SOON) == 0
    change.communicate()


def test_an_event_that_was_queued_behind_a_removal_is_not_delivered(sim):
    consumer = sim.consumer()
    handle = consumer.register()["handle"]
    consumer.do(do="policy", hold=True)
    first = sim.start_control("event", POOL_STATE)
    consumer.next_event()
    second = sim.start_control("event", POOL_STATE)
    assert wait_until(lambda: len(sim.traced("event")) == 2)
    consumer.do(do="unregister", handle=handle)
    consumer.do(do="policy")
    for command in (first, second):
        command.communicate(timeout=SOON)
        assert command.returncode == 0
    assert consumer.is_silent()


def test_a_silent_consumer_is_waited_for_as_long_as_asked(sim):
    consumer = sim.consumer()
    consumer.register()
    consumer.do(do="policy", hold=True)
    out = sim.control("state", "P", "active", "--forced", "--timeout", "0.2", status=3)
    assert "OSTREL.PoolLock has not answered" in out and "pool P: not changed, no answer" in out
    assert pool_state(sim) == "maintenance"
    consumer.do(do="policy")
    sim.control("state", "P", "active", "--forced", "--timeout", "60")
    assert pool_state(sim) == "active"


def test_one_object_has_one_change_at_a_time(sim):
    consumer = sim.consumer()
    consumer.register()
    consumer.do(do="policy", hold=True)
    change = sim.start_control("state", "P", "active", "--forced", "--wait")
    consumer.next_event()
    assert "another change is under way" in sim.control("state", "P", "deactive", status=2)
    assert "V" in sim.control("volume-state", "V", "deactive")
    consumer.do(do="policy")
    assert change.wait(timeout=SOON) == 0
    change.communicate()


def test_a_killed_consumer_holds_nothing(sim):
    consumer = sim.consumer()
    consumer.register()
    consumer.do(do="policy", hold=True)
    change = sim.start_control("state", "P", "active", "--forced")
    consumer.next_event()
    consumer.kill()
    out, _ = change.communicate(timeout=SOON)
    assert change.returncode == 0 and "OSTREL.PoolLock is gone" in out
    assert registrations(sim) == [] and pool_state(sim) == "active"


def test_a_waiting_handler_does_not_keep_its_process(sim):
    consumer = sim.consumer()
    consumer.register()
    consumer.do(do="policy", hold=True)
    change = sim.start_control("state", "P", "active", "--forced")
    consumer.next_event()
    # Below the interpreter, as a program ends that returns from main.
    consumer.process.stdin.write(b'{"do": "leave"}\n')
    consumer.process.stdin.flush()
    assert consumer.process.wait(timeout=SOON) == 0
    assert change.wait(timeout=SOON) == 0
    change.communicate()


def test_registration_fails_without_a_service(sim):
    consumer = sim.consumer()
    sim.process.terminate()
    sim.process.wait()
    reply = consumer.register()
    assert reply["status"] != 0 and reply["seconds"] < PATIENCE


def test_a_service_that_stands_still_hangs_nobody(sim):
    consumer = sim.consumer()
    handle = consumer.register()["handle"]
    consumer.do(do="patience", milliseconds=200)
    with sim.standing_still():
        registration = consumer.register("OSTREL.PoolRename.Enter")
        removal = consumer.do(do="unregister", handle=handle)
    assert registration["status"] != 0 and 0.2 <= registration["seconds"] < 4 * PATIENCE
    assert removal["status"] != 0 and 0.2 <= removal["seconds"] < 4 * PATIENCE
    # The registration whose reply came too late is withdrawn.
    assert wait_until(lambda: registrations(sim) == [])


def test_a_library_that_is_told_no_time_of_patience_has_its_own(sim):
    consumers = [sim.consumer() for _ in range(4)]
    for consumer, told in zip(consumers[1:], [0, -1, "soon"], strict=True):
        consumer.do(do="patience", milliseconds=told)
    with sim.standing_still(), concurrent.futures.ThreadPoolExecutor(4) as at_once:
        replies = list(at_once.map(lambda consumer: consumer.register(), consumers))
    assert all(reply["status"] != 0 and PATIENCE <= reply["seconds"] < 4 * PATIENCE
               for reply in replies), replies


def test_a_service_that_dies_takes_the_registrations_with_it(sim, start):
    consumer = sim.consumer()
    handle = consumer.register()["handle"]
    sim.kill()
    removal = consumer.do(do="unregister", handle=handle)
    assert removal["status"] != 0 and removal["seconds"] < PATIENCE
    again = start("--pool", f"P,{POOL_GUID},maintenance", socket=sim.socket)
    assert wait_until(lambda: consumer.register()["status"] == 0)
    again.control("state", "P", "active")
    assert consumer.next_event()["states"] == [3, 6]


def test_a_refused_registration_leaves_nothing(sim):
    sim.control("fault", "bus-refuse", "20008")
    consumer = sim.consumer()
    assert consumer.register() == {"status": 20008, "handle": 0} | {
        "seconds": pytest.approx(0, abs=PATIENCE)}
    assert registrations(sim) == []
    assert consumer.register()["status"] == 0


def test_a_refused_removal_leaves_the_registration_alive(sim):
    consumer = sim.consumer()
    handle = consumer.register()["handle"]
    sim.control("fault", "bus-refuse-unregister")
    assert consumer.do(do="unregister", handle=handle)["status"] == 20401
    sim.control("state", "P", "active")
    assert consumer.next_event()["states"] == [3, 6]
    assert consumer.do(do="unregister", handle=handle)["status"] == 0


def test_an_event_can_be_made_up(sim):
    consumer = sim.consumer()
    consumer.register()
    sim.control("event", POOL_STATE, "--guid", VOLUME_GUID, "--from", "2", "--to", "2", "--mode",
                "0x18", "--notify", "4")
    event = consumer.next_event()
    assert (event["notify"], event["states"], event["mode"], event["guid"]) == (
        4, [2, 2], 24, VOLUME_GUID_BYTES.hex())
    assert pool_state(sim) == "maintenance"


def test_events_reach_only_those_who_registered_for_them(sim):
    consumer = sim.consumer()
    consumer.register("OSTREL.PoolRename.Enter")
    assert "delivered to 0" in sim.control("event", POOL_STATE)
    assert consumer.is_silent()


def units(text):
    raw = text.encode("utf-16-le")
    return [int.from_bytes(raw[i:i + 2], "little") for i in range(0, len(raw), 2)]


def test_a_pool_rename_tells_both_names(sim):
    consumer = sim.consumer()
    consumer.register("OSTREL.PoolRename.Enter")
    sim.control("rename", "P", "Bücher€𝄞")
    event = consumer.next_event()
    assert (event["old_name"], event["new_name"]) == (units("P"), units("Bücher€𝄞"))
    assert event["guid"] == POOL_GUID_BYTES.hex()
    assert sim.listed("pool Bücher€𝄞")


def test_a_volume_rename_is_announced_before_and_after(sim):
    consumer = sim.consumer()
    consumer.register("OSTREL.LVolumeRename.Enter", context=1)
    consumer.register("OSTREL.LVolumeRename.Exit", context=2)
    sim.control("volume-rename", "V", "W")
    events = [consumer.next_event(), consumer.next_event()]
    assert [event["context"] for event in events] == [1, 2]
    assert all(event["new_name"] == units("W") for event in events)
    assert sim.listed("volume W") and not sim.listed("volume V")


def test_a_volume_deletion_is_announced_before_and_after(sim):
    consumer = sim.consumer()
    consumer.register("OSTREL.LVolumeDelete.Enter", context=1)
    consumer.register("OSTREL.LVolumeDelete.Exit", context=2)
    sim.control("volume-delete", "V")
    events = [consumer.next_event(), consumer.next_event()]
    assert [event["context"] for event in events] == [1, 2]
    assert events[1]["guid"] == VOLUME_GUID_BYTES.hex()
    assert events[1]["new_guid"] not in ("00" * 16, VOLUME_GUID_BYTES.hex())
    assert not sim.listed("volume")


def test_the_move_to_long_numbers_is_announced_before_and_after(sim):
    consumer = sim.consumer()
    consumer.register("OSTREL.LVolZID64.Enter", context=1)
    consumer.register("OSTREL.LVolZID64.Exit", context=2)
    sim.control("volume-zid", "V")
    assert [consumer.next_event()["context"] for _ in range(2)] == [1, 2]


def test_a_refused_deletion_is_not_announced_as_done(sim):
    consumer = sim.consumer()
    consumer.register("OSTREL.LVolumeDelete.Enter")
    consumer.register("OSTREL.LVolumeDelete.Exit", context=2)
    consumer.do(do="policy", answer=0xFFFF00, refusal=20881)
    sim.control("volume-delete", "V", status=1)
    assert consumer.next_event()["context"] == 0x1234567890
    assert sim.listed("volume V") and consumer.is_silent()


def test_a_modify_state_request_obeys_a_veto(sim):
    consumer = sim.consumer()
    consumer.register("OSTREL.ChangeVolState.Enter")
    consumer.do(do="policy", answer=0xFFFF00, refusal=20881)
    with sim.channel() as channel:
        reply = channel.ask(b"<ostrelRequest><volume><modifyState><volumeName>V</volumeName>"
                            b"<volumeState>deactive</volumeState></modifyState></volume>"
                            b"</ostrelRequest>")
    assert b'<modifyState><result value="20881"/>' in reply
    assert consumer.next_event()["guid"] == VOLUME_GUID_BYTES.hex()
    assert sim.listed("volume V")[0].split()[2] == "active"


def test_the_trace_tells_registrations_events_and_answers(sim):
    consumer = sim.consumer()
    handle = consumer.register()["handle"]
    sim.control("state", "P", "active")
    consumer.do(do="unregister", handle=handle)
    kinds = [line[11:].split(":")[0] for line in sim.control("trace").splitlines()]
    assert kinds == ["register", "event", "answer", "state", "unregister"]


def test_registrations_come_and_go_on_several_threads_under_fire(sim):
    """A program of its own, so that the sanitizers watch both sides of the library."""
    stress = subprocess.Popen([BUILD / "tests/bus_stress", "200", "20"], env=sim.environment(),
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    while stress.poll() is None:
        sim.control("event", POOL_STATE, "--timeout", "60")
    out, errors = stress.communicate()
    assert stress.returncode == 0 and errors == ""
    registered, delivered = map(int, out.split())
    assert registered >= 200 and delivered >= 20
    assert wait_until(lambda: registrations(sim) == [])
