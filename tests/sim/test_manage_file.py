import ctypes
import errno
import os
import signal
import subprocess
import threading
import time

import pytest

from simulation import (MODE_SWITCH, POOL_GUID, PYTHON, SOON, VOLUME_GUID, field, pool_info,
                        volume_info, wait_until)

REFUSED = b"<writeResult><error>The request was refused (20401)</error></writeResult>"


def modify_state(name, state):
    return (f"<ostrelRequest><volume><modifyState><volumeName>{name}</volumeName><volumeState>"
            f"{state}</volumeState></modifyState></volume></ostrelRequest>").encode()


def test_pool_info_is_answered_with_state_and_guid(sim):
    with sim.channel() as channel:
        assert channel.ask(pool_info("P")) == (
            b'<ostrelReply><result value="0"/><pool><getPoolInfo><result value="0"/><basicInfo>'
            b"<poolName>P</poolName><poolState>maintenance</poolState><poolGUID>" +
            POOL_GUID.encode() + b"</poolGUID></basicInfo></getPoolInfo></pool></ostrelReply>")


def test_volume_info_is_answered_with_state_and_guid(sim):
    with sim.channel() as channel:
        assert channel.ask(volume_info("V")) == (
            b'<ostrelReply><result value="0"/><volume><getVolumeInfo><result value="0"/><basicInfo>'
            b"<volumeName>V</volumeName><volumeState>active</volumeState><volumeGUID>" +
            VOLUME_GUID.encode() + b"</volumeGUID></basicInfo></getVolumeInfo></volume></ostrelReply>")


def test_the_word_mounted_is_told_as_it_is(start):
    sim = start("--pool", "M,-,mounted")
    with sim.channel() as channel:
        assert field(channel.ask(pool_info("M")), "poolState") == "mounted"


@pytest.mark.parametrize("request_text, operation", [
    (pool_info("NOSUCH"), b"<getPoolInfo>"),
    (volume_info("NOSUCH"), b"<getVolumeInfo>"),
    (pool_info("p"), b"<getPoolInfo>"),
    (modify_state("NOSUCH", "active"), b"<modifyState>"),
])
def test_an_unknown_object_gives_a_result_of_its_own_operation(sim, request_text, operation):
    with sim.channel() as channel:
        reply = channel.ask(request_text)
    assert reply.startswith(b'<ostrelReply><result value="0"/>')
    assert operation + b'<result value="20444"/>' in reply


def test_modify_state_changes_the_volume(sim):
    with sim.channel() as channel:
        assert channel.ask(modify_state("V", "deactive")) == (
            b'<ostrelReply><result value="0"/><volume><modifyState><result value="0"/>'
            b"</modifyState></volume></ostrelReply>")
        assert field(channel.ask(volume_info("V")), "volumeState") == "deactive"


def test_modify_state_refuses_a_word_that_is_no_state(sim):
    with sim.channel() as channel:
        assert b'<modifyState><result value="20008"/>' in channel.ask(modify_state("V", "Active"))
        assert field(channel.ask(volume_info("V")), "volumeState") == "active"


@pytest.mark.parametrize("request_text", [
    b"",
    b"hello",
    pool_info("P")[:-1],
    pool_info("P") + b"\n",
    pool_info("P") + b"\0",
    b" " + pool_info("P"),
    pool_info("P").replace(b"> type", b" type"),
    pool_info("P").replace(b'"basic"', b"'basic'"),
    pool_info("P").replace(b"basic", b"full"),
    pool_info(""),
    pool_info("P</poolName><poolName>Q"),
    volume_info("V").replace(b"volume", b"pool"),
    modify_state("V", ""),
    modify_state("V", "active").replace(b"<volumeState>", b"<state>"),
    MODE_SWITCH,
], ids=range(15))
def test_any_other_form_is_refused_with_a_write_result(sim, request_text):
    with sim.channel() as channel:
        if request_text:
            assert channel.ask(request_text) == REFUSED
        assert field(channel.ask(pool_info("P")), "poolState") == "maintenance"


@pytest.mark.parametrize("first", [
    pool_info("P"),
    b"<virtualIO><datastream/></virtualIO>",
    MODE_SWITCH.replace(b"command", b"other"),
    MODE_SWITCH[:-1],
    MODE_SWITCH + b"\0",
], ids=["request", "no stream", "other stream", "cut", "longer"])
def test_the_first_write_must_switch_to_the_command_stream(sim, first):
    with sim.channel(switch=False) as channel:
        with pytest.raises(OSError) as failure:
            channel.write(first)
        assert failure.value.errno == errno.EINVAL
        assert channel.read() == b""
        assert channel.write(MODE_SWITCH) == len(MODE_SWITCH)
        assert field(channel.ask(pool_info("P")), "poolState") == "maintenance"


def test_a_write_behind_offset_0_is_no_request(sim):
    with sim.channel() as channel:
        with pytest.raises(OSError) as failure:
            channel.write(pool_info("P"), 1)
        assert failure.value.errno == errno.EINVAL
        assert channel.read() == b""


def test_a_reply_ends_and_stays_until_the_next_request(sim):
    with sim.channel() as channel:
        reply = channel.ask(pool_info("P"))
        assert os.pread(channel.descriptor, 100, len(reply)) == b""
        assert os.pread(channel.descriptor, 100, len(reply) + 5000) == b""
        assert os.pread(channel.descriptor, 7, 1) == reply[1:8]
        assert channel.read(chunk=10) == reply
        channel.write(b"x")
        assert channel.read() == REFUSED


def test_each_open_file_is_a_conversation_of_its_own(sim):
    with sim.channel() as one, sim.channel() as other:
        one.write(pool_info("P"))
        other.write(volume_info("V"))
        assert field(one.read(), "poolState") == "maintenance"
        assert field(other.read(), "volumeState") == "active"


def test_a_stream_of_the_c_library_carries_an_exchange(sim):
    libc = ctypes.CDLL(None, use_errno=True)
    libc.fopen.restype = ctypes.c_void_p
    file = ctypes.c_void_p(libc.fopen(sim.manage.encode(), b"r+"))
    assert file
    for text in (MODE_SWITCH, pool_info("P")):
        assert libc.fseek(file, 0, 0) == 0
        assert libc.fwrite(text, 1, len(text), file) == len(text)
        assert libc.fflush(file) == 0
    reply = b""
    buffer = ctypes.create_string_buffer(100)
    while True:
        assert libc.fseek(file, len(reply), 0) == 0
        count = libc.fread(buffer, 1, 100, file)
        reply += buffer.raw[:count]
        if count < 100:
            break
    assert libc.fclose(file) == 0
    assert field(reply, "poolGUID") == POOL_GUID and reply.endswith(b"</ostrelReply>")


def test_a_slow_reply_does_not_hold_another_conversation(sim):
    sim.control("fault", "slow", "60000")
    with sim.channel() as slow, sim.channel() as quick:
        slow.write(pool_info("P"))
        replies = []
        reader = threading.Thread(target=lambda: replies.append(slow.read()))
        reader.start()
        assert field(quick.ask(pool_info("P")), "poolState") == "maintenance"
        assert reader.is_alive()
        sim.control("fault", "clear")
        reader.join(20)
        assert field(replies[0], "poolState") == "maintenance"


def test_a_killed_reader_of_a_slow_reply_is_gone_at_once(sim):
    sim.control("fault", "slow", "60000")
    script = (f"import os; f = os.open('{sim.manage}', os.O_RDWR); os.pwrite(f, {MODE_SWITCH}, 0);"
              f"os.pwrite(f, {pool_info('P')}, 0); os.pread(f, 10, 0)")
    reader = subprocess.Popen([PYTHON, "-c", script])
    assert wait_until(lambda: sim.traced("reply"))
    time.sleep(0.1)
    reader.send_signal(signal.SIGKILL)
    assert reader.wait(timeout=SOON) == -signal.SIGKILL
    assert wait_until(lambda: not sim.listed("open management file"))


def test_open_files_are_listed_until_they_are_closed(sim):
    with sim.channel():
        assert sim.listed("open management file") == [
            f"open management file 1 of process {os.getpid()}"]
    assert wait_until(lambda: not sim.listed("open management file"))


def test_the_trace_tells_every_exchange(sim):
    with sim.channel() as channel:
        channel.ask(b"nonsense\nx")
    assert wait_until(lambda: sim.traced("close"))
    me = f"file 1 of process {os.getpid()}"
    assert [line[11:] for line in sim.control("trace").splitlines()] == [
        f"open: {me}", f"switch: {me} {MODE_SWITCH.decode()}", f"request: {me} nonsense\\nx",
        f"reply: {me} {len(REFUSED)} bytes {REFUSED.decode()}", f"flush: {me}", f"close: {me}"]
