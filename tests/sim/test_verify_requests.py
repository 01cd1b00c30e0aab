import pytest

from simulation import POOL_GUID, VOLUME_GUID, field, wait_until

REFUSED = b"<writeResult>"


def request(*fields):
    inner = "".join(f"<{name}/>" if value is None else f"<{name}>{value}</{name}>"
                    for name, value in fields)
    return f"<ostrelRequest><pool><poolVerify>{inner}</poolVerify></pool></ostrelRequest>".encode()


def verify_start(pool="P", *more):
    return request(("action", 1), ("poolName", pool), ("uiOptions", 3), ("debugLevel", 0), *more)


def rebuild_start(*more):
    return request(("action", 2), ("poolName", "P"), ("rezidThreshold", 1), ("uiOptions", 0),
                   ("debugLevel", 2), ("fileLossMax", 9), *more)


def on_job(key, action, *more):
    return request(("userKey", key), ("action", action), *more)


def result(reply):
    begin = b'<ostrelReply><result value="0"/><pool><poolVerify><result value="'
    assert reply.startswith(begin), reply
    return int(reply[len(begin):reply.index(b'"', len(begin))])


@pytest.fixture
def channel(sim):
    with sim.channel() as opened:
        opened.sim = sim
        yield opened


def test_a_start_gives_a_new_key_each_time(channel):
    first = channel.ask(verify_start())
    second = channel.ask(verify_start("P", ("crossValidation", None)))
    third = channel.ask(rebuild_start(("uiPruneWait", None), ("purge", None), ("pruneIV", None),
                                      ("pruneUnknownLosses", None)))
    assert [field(reply, "userKey") for reply in (first, second, third)] == ["1", "2", "3"]
    assert [result(reply) for reply in (first, second, third)] == [0, 0, 0]


def test_a_start_needs_a_known_pool_in_maintenance(channel):
    assert result(channel.ask(verify_start("NOSUCH"))) == 20444
    channel.sim.control("state", "P", "active")
    assert result(channel.ask(verify_start())) == 20813


def test_details_tell_state_and_statuses(channel):
    channel.ask(verify_start())
    reply = channel.ask(on_job(1, 3))
    assert reply.startswith(b'<ostrelReply><result value="0"/><pool><poolVerify>'
                            b'<result value="0"/><verifyDetails><entry><userKey value="1"/>')
    assert [field(reply, name) for name in ("poolName", "state", "ravStatus", "finalStatus",
                                            "finalStatusSetter", "uiOptions")] == [
        "P", "1", "0", "0", "0", "3"]
    channel.sim.control("job", "1", "finish", "20012", "4")
    reply = channel.ask(on_job(1, 3))
    assert [field(reply, name) for name in ("state", "finalStatus", "finalStatusSetter")] == [
        "3", "20012", "4"]


def test_rebuild_details_stand_under_their_own_element(channel):
    channel.ask(rebuild_start())
    assert b"<rebuildDetails><entry>" in channel.ask(on_job(1, 4))
    assert result(channel.ask(on_job(1, 3))) == 20444


def test_details_by_key_pool_file_or_of_all(channel):
    for _ in range(2):
        channel.ask(verify_start())
    assert channel.ask(on_job(2, 3)).count(b"<entry>") == 1
    assert channel.ask(on_job(2, 3, ("multiple", None))).count(b"<entry>") == 2
    assert channel.ask(request(("poolName", "P"), ("action", 3))).count(b"<entry>") == 2
    assert channel.ask(request(("action", 3))).count(b"<entry>") == 2
    by_file = channel.ask(request(("fileName", "verify2.xml"), ("userKey", 2), ("action", 3)))
    assert field(by_file, "userKey") == "2"
    assert result(channel.ask(on_job(9, 3))) == 20444
    assert result(channel.ask(on_job(9, 3, ("multiple", None)))) == 20444


def test_options_of_a_job_are_set(channel):
    channel.ask(verify_start())
    for name, value in (("uiPruneStatus", 5), ("uiOptions", 6), ("debugLevel", 7)):
        assert result(channel.ask(on_job(1, 6, (name, value)))) == 0
        assert field(channel.ask(on_job(1, 3)), name) == str(value)
    assert result(channel.ask(on_job(2, 6, ("uiOptions", 1)))) == 20444
    assert result(channel.ask(request(("action", 6), ("reset", None), ("reconfigure", None)))) == 0


def test_a_job_is_paused_resumed_and_cancelled(channel):
    channel.ask(verify_start())
    for action, expected, state in ((10, 20010, "1"), (9, 0, "2"), (9, 20010, "2"), (10, 0, "1"),
                                    (11, 0, "4"), (11, 20010, "4"), (9, 20010, "4")):
        assert result(channel.ask(on_job(1, action))) == expected
        assert field(channel.ask(on_job(1, 3)), "state") == state
    assert result(channel.ask(on_job(2, 9))) == 20444


def test_a_job_is_removed(channel):
    channel.ask(verify_start())
    assert result(channel.ask(on_job(1, 5, ("itemKey", 7), ("itemType", 1)))) == 20444
    assert result(channel.ask(on_job(1, 5, ("itemKey", 0), ("itemType", 0)))) == 0
    assert result(channel.ask(on_job(1, 3))) == 20444
    assert result(channel.ask(on_job(1, 5, ("itemKey", 0), ("itemType", 0)))) == 20444


def look_up(volume):
    return request(("action", 7), ("zid", 128), ("nameSpace", 1), ("nameType", 2),
                   ("volumeID", volume))


def test_a_name_is_looked_up_by_its_number(channel):
    reply = channel.ask(look_up(VOLUME_GUID))
    assert (result(reply), field(reply, "volume"), field(reply, "path")) == (0, "V", "/zid/128")
    assert result(channel.ask(look_up(POOL_GUID))) == 20444
    assert result(channel.ask(look_up("x"))) == 20008


def test_the_version_is_told_in_value_attributes(channel):
    reply = channel.ask(request(("action", 8)))
    assert all(field(reply, name).isdigit() for name in ("versionMajor", "versionMinor",
                                                         "xmlVersionMajor", "xmlVersionMinor"))


@pytest.mark.parametrize("text", [
    request(),
    request(("action", 12)),
    request(("action", "x")),
    request(("action", 1)),
    request(("action", 8), ("action", 8)),
    request(("action", 3), ("userKey", 1)),
    request(("userKey", "one"), ("action", 3)),
    request(("userKey", 1), ("action", 3), ("multiple", 1)),
    verify_start("P", ("purge", None)),
    request(("poolName", "P"), ("action", 1), ("uiOptions", 0), ("debugLevel", 0)),
    rebuild_start(("purge", None), ("uiPruneWait", None)),
    on_job(1, 6, ("colour", 3)),
    on_job(1, 3)[:-1],
    on_job(1, 3).replace(b"</userKey>", b"</key>"),
    on_job(1, 3).replace(b"<action>", b" <action>"),
], ids=range(15))
def test_a_request_of_another_form_is_refused(channel, text):
    channel.ask(verify_start())
    assert channel.ask(text).startswith(REFUSED)


def test_result_files_carry_the_key_of_their_job(channel):
    channel.ask(verify_start())
    channel.ask(rebuild_start())
    base = channel.sim.inside("/_admin/Manage_OSTREL/Pool/P")
    for folder, layout in (("KUVO", "32"), ("KUVO64", "64")):
        for name, key in (("verify1.xml", "1"), ("rebuild2.xml", "2")):
            with open(f"{base}/{folder}/{name}", "rb") as file:
                text = file.read()
            assert f'<userKey value="{key}"'.encode() in text
            assert field(text, "layout") == layout
    with pytest.raises(FileNotFoundError):
        open(f"{base}/KUVO/verify3.xml", "rb")
    with pytest.raises(PermissionError):
        open(f"{base}/KUVO/verify1.xml", "r+b").write(b"x" * 10000)


def test_jobs_are_listed(channel):
    channel.ask(verify_start())
    assert wait_until(lambda: channel.sim.listed("job"))
    assert channel.sim.listed("job") == ["job 1 verify of pool P, state 1"]
