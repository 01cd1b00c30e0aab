import errno
import time

import pytest

from simulation import MODE_SWITCH, POOL_GUID, field, pool_info, volume_info


def reply_with(sim, *fault, request=pool_info("P")):
    sim.control("fault", *fault)
    with sim.channel() as channel:
        distorted = channel.ask(request)
        assert field(channel.ask(pool_info("P")), "poolGUID") == POOL_GUID
    return distorted


@pytest.mark.parametrize("words, status", [(["refuse"], "20401"), (["refuse", "7"], "7")])
def test_a_refused_request_gets_a_write_result(sim, words, status):
    assert reply_with(sim, *words) == (
        f"<writeResult><error>The request was refused ({status})</error></writeResult>".encode())


@pytest.mark.parametrize("words, begin", [
    (["result", "5"], b'<ostrelReply><result value="5"/><pool><getPoolInfo><result value="0"/>'),
    (["operation-result", "5"],
     b'<ostrelReply><result value="0"/><pool><getPoolInfo><result value="5"/>'),
    (["malformed", "no-result"], b'<ostrelReply><pool><getPoolInfo><result value="0"/>'),
    (["malformed", "no-operation-result"],
     b'<ostrelReply><result value="0"/><pool><getPoolInfo><basicInfo>'),
    (["malformed", "no-attribute"], b"<ostrelReply><result /><pool><getPoolInfo><result />"),
], ids=lambda words: "-".join(words) if isinstance(words, list) else "")
def test_results_are_replaced_or_left_out(sim, words, begin):
    distorted = reply_with(sim, *words)
    assert distorted.startswith(begin) and distorted.endswith(b"</ostrelReply>")


def test_a_malformed_reply_is_cut_in_the_middle(sim):
    with sim.channel() as channel:
        whole = channel.ask(pool_info("P"))
    assert reply_with(sim, "malformed") == whole[:len(whole) // 2]
    assert reply_with(sim, "malformed", "cut") == whole[:len(whole) // 2]


def test_a_reply_can_be_empty_or_no_xml_or_any_text(sim):
    assert reply_with(sim, "malformed", "empty") == b""
    assert b"<" not in reply_with(sim, "malformed", "not-xml")
    assert reply_with(sim, "reply", "<a> b % \n</a>") == b"<a> b % \n</a>"


def test_a_bad_guid_takes_the_place_of_the_good_one(sim):
    assert field(reply_with(sim, "bad-guid"), "poolGUID") == "no-guid"
    assert field(reply_with(sim, "bad-guid", request=volume_info("V")), "volumeGUID") == "no-guid"


def test_the_values_can_be_missing(sim):
    distorted = reply_with(sim, "no-value")
    assert b"<basicInfo><poolName>P</poolName></basicInfo>" in distorted


@pytest.mark.parametrize("size", [2048, 2049])
def test_a_reply_has_exactly_the_size_asked_for(sim, size):
    distorted = reply_with(sim, "size", str(size))
    assert len(distorted) == size and distorted.endswith(b" </ostrelReply>")
    assert field(distorted, "poolGUID") == POOL_GUID


def test_a_failing_open(sim):
    sim.control("fault", "eio-open")
    with pytest.raises(OSError) as failure:
        sim.channel()
    assert failure.value.errno == errno.EIO
    sim.channel().__exit__()


@pytest.mark.parametrize("kind, request_text", [("eio-switch", MODE_SWITCH),
                                                ("eio-write", pool_info("P"))])
def test_a_failing_write(sim, kind, request_text):
    sim.control("fault", kind)
    with sim.channel(switch=kind == "eio-write") as channel:
        with pytest.raises(OSError) as failure:
            channel.write(request_text)
        assert failure.value.errno == errno.EIO
        assert channel.write(request_text) == len(request_text)


def test_a_failing_read_lasts_until_the_next_request(sim):
    sim.control("fault", "eio-read")
    with sim.channel() as channel:
        channel.write(pool_info("P"))
        for _ in range(2):
            with pytest.raises(OSError) as failure:
                channel.read()
            assert failure.value.errno == errno.EIO
        assert field(channel.ask(pool_info("P")), "poolGUID") == POOL_GUID


def test_a_slow_reply_comes_late_but_whole(sim):
    sim.control("fault", "slow", "300")
    with sim.channel() as channel:
        begin = time.monotonic()
        assert field(channel.ask(pool_info("P")), "poolGUID") == POOL_GUID
        assert time.monotonic() - begin >= 0.3


def test_a_fault_waits_for_its_turns(sim):
    sim.control("fault", "refuse", "--after", "1", "--next", "2")
    assert sim.listed("fault") == ["fault refuse  for the next 2 after 1"]
    with sim.channel() as channel:
        refused = [channel.ask(pool_info("P")).startswith(b"<writeResult>") for _ in range(5)]
    assert refused == [False, True, True, False, False]
    assert sim.listed("fault") == []


def test_faults_of_different_points_strike_together(sim):
    sim.control("fault", "bad-guid")
    sim.control("fault", "size", "2048")
    with sim.channel() as channel:
        distorted = channel.ask(pool_info("P"))
    assert len(distorted) == 2048 and field(distorted, "poolGUID") == "no-guid"


def test_waiting_faults_are_cleared(sim):
    sim.control("fault", "refuse", "--next", "100")
    sim.control("fault", "clear")
    with sim.channel() as channel:
        assert field(channel.ask(pool_info("P")), "poolGUID") == POOL_GUID


@pytest.mark.parametrize("words", [
    ["nonsense"], ["slow"], ["slow", "soon"], ["size", "-1"], ["malformed", "slightly"],
    ["bad-guid", "1"], ["refuse", "x"], ["refuse", "--next", "0"], ["refuse", "1", "2"],
    ["slow", "99999999"], ["size", "1048577"], ["malformed", "cut", "empty"], []])
def test_a_fault_that_makes_no_sense_is_an_error(sim, words):
    assert sim.control("fault", *words, status=2).startswith("ostrelsimctl: ")
    assert sim.listed("fault") == []
