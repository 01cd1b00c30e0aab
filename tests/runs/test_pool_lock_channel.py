"""What goes wrong between the tool and the management file: the pass's message, the lines of the
log, and what is left behind with the service."""

import dataclasses

import pytest

import servedrun
from servedrun import OPEN_FAILURE, READ_FAILURE, WRITE_RESULT, pool_info_reply

IO_ERROR = "Input/output error"
NO_ROOT_RESULT = "Unable to parse XML tag <ostrelReply>"
NO_OPERATION_RESULT = "Unable to parse XML tag <getPoolInfo>"
WRITE_ERROR = "Could not read because of a write error "
REGISTERED = [*servedrun.QUERY, "register"]


def test_a_long_request_arrives_in_one_write(serve, device, tmp_path):
    service = serve()
    name = "N" * 5000
    with service.save(tmp_path, device, pool=name) as run:
        assert run.wait_exit() == 1
    assert service.spoken("request") == [servedrun.pool_info_request(name)]
    assert service.exchange_kinds() == servedrun.QUERY
    assert any(line.endswith("getPoolInfo results") for line in run.body)


@dataclasses.dataclass
class Trouble:
    """An injected fault, the failure's text and the lines of the log before it."""

    fault: tuple
    reason: str
    channel: list = dataclasses.field(default_factory=list)
    exchange: list = dataclasses.field(default_factory=lambda: servedrun.QUERY)


def refusal(text, status):
    return Trouble(("reply", f"<writeResult><error>{text}</error></writeResult>"), WRITE_ERROR,
                   [f'{WRITE_RESULT}"{status}"'])


def result(value, reason, *channel):
    reply = f'<ostrelReply><result value="{value}"/><pool/></ostrelReply>'
    return Trouble(("reply", reply), reason, list(channel))


def operation_result(value, reason):
    reply = pool_info_reply().replace('<getPoolInfo><result value="0"/>',
                                      f'<getPoolInfo><result value="{value}"/>')
    return Trouble(("reply", reply), reason, [f"util/common/tXML[1400]{reply}"])


def reply(text, reason):
    return Trouble(("reply", text), reason)


TROUBLES = {
    "refused": Trouble(("refuse",), WRITE_ERROR, [f'{WRITE_RESULT}"20401"']),
    "refused-7": Trouble(("refuse", "7"), WRITE_ERROR, [f'{WRITE_RESULT}"7"']),
    "refused-decimal": Trouble(("refuse", "4294967295"), WRITE_ERROR,
                               [f'{WRITE_RESULT}"4294967295"']),
    "refused-without-number": refusal("refused", 24999),
    "refused-in-one-character": refusal("(", 24999),
    "refused-with-words-first": refusal("(abc)(9)", 0),
    "refused-in-hexadecimal": refusal("(0x10)", 16),
    "refused-in-octal": refusal("( 010)", 8),
    "result": Trouble(("result", "5"), "Reply results"),
    "result-negative": result("-1", "Reply results"),
    "result-too-big": Trouble(("result", "4294967296"), "Value overflow"),
    "result-just-too-big": result("2147483648", "Value overflow"),
    "operation-result": operation_result("5", "getPoolInfo results"),
    "operation-result-largest": operation_result("0x7fffffff", "getPoolInfo results"),
    "operation-result-too-big": Trouble(("operation-result", "4294967296"), "Value overflow"),
    "cut": Trouble(("malformed", "cut"), NO_ROOT_RESULT),
    "empty": Trouble(("malformed", "empty"), NO_ROOT_RESULT),
    "not-xml": Trouble(("malformed", "not-xml"), NO_ROOT_RESULT),
    "no-result": Trouble(("malformed", "no-result"), NO_ROOT_RESULT),
    "no-operation-result": Trouble(("malformed", "no-operation-result"), NO_OPERATION_RESULT),
    "no-value": Trouble(("no-value",), NO_OPERATION_RESULT),
    "xml-declaration": reply('<?xml version="1.0"?>' + pool_info_reply(), NO_ROOT_RESULT),
    "other-root": reply('<ostrelAnswer><result value="0"/></ostrelAnswer>', NO_ROOT_RESULT),
    "result-one-level-down": reply('<ostrelReply><a><result value="0"/></a></ostrelReply>',
                                   NO_ROOT_RESULT),
    "other-operation": reply(pool_info_reply().replace("getPoolInfo", "getVolumeInfo"),
                             NO_OPERATION_RESULT),
    "write-result-too-short": reply("<writeResult>", NO_ROOT_RESULT),
    "write-result-without-error": reply("<writeResult><warning>(7)</warning></writeResult>",
                                        NO_ROOT_RESULT),
    "eio-open": Trouble(("eio-open",), "Could not open command file",
                        [f'{OPEN_FAILURE}"{IO_ERROR}"'], ["failed open"]),
    "eio-read": Trouble(("eio-read",), "Could not read", [f'{READ_FAILURE}"{IO_ERROR}"'],
                        ["open", "switch", "request", "reply", "failed read", "close"]),
    "eio-write": Trouble(("eio-write",), NO_ROOT_RESULT, [f"Unable to flush data 3: {IO_ERROR}"],
                         ["open", "switch", "failed write", "close"]),
}


def expect_refused(service, run, device, sample, trouble):
    assert run.wait_exit() == 1
    assert run.message == f"Could not lock pool into MAINTENANCE state:  {trouble.reason}".rstrip()
    assert run.failed_with(1)
    assert run.body == servedrun.refused_save_log(device, sample.blocks, trouble.reason,
                                                  trouble.channel)
    assert list(run.folder.glob("*.ZSB")) == []
    assert service.holds_nothing() and service.pool_state() == "maintenance"


@pytest.mark.parametrize("name", TROUBLES)
def test_trouble_when_the_pool_is_looked_up(serve, device, sample, tmp_path, name):
    trouble = TROUBLES[name]
    service = serve()
    service.control("fault", *trouble.fault)
    with service.save(tmp_path, device) as run:
        expect_refused(service, run, device, sample, trouble)
    assert service.exchange_kinds() == trouble.exchange


# Both questions go one road; these are the ones that tell its stations apart.
WHEN_ASKED_AGAIN = ["refused", "refused-without-number", "result", "result-too-big",
                    "operation-result", "cut", "empty", "no-operation-result", "no-value",
                    "eio-open", "eio-read", "eio-write"]


# The registration stands before the state is asked, and the failed lock leaves it to the end of the
# process.
@pytest.mark.parametrize("name", WHEN_ASKED_AGAIN)
def test_trouble_when_the_state_is_asked(serve, device, sample, tmp_path, name):
    trouble = TROUBLES[name]
    service = serve()
    service.control("fault", *trouble.fault, "--after", "1")
    with service.save(tmp_path, device) as run:
        expect_refused(service, run, device, sample, trouble)
    assert service.exchange_kinds() == [*REGISTERED, *trouble.exchange, "drop"]


def test_an_identifier_that_is_none(serve, device, sample, tmp_path):
    service = serve()
    service.control("fault", "bad-guid")
    trouble = Trouble((), "Unable to parse Pool ID string")
    with service.save(tmp_path, device) as run:
        expect_refused(service, run, device, sample, trouble)
    assert service.exchange_kinds() == servedrun.QUERY


@pytest.mark.parametrize("text", [
    "", " 01234567-89ab-0cde-8f-10-112233445566", "{01234567-89ab-0cde-8f10-112233445566}",
    "0123456789ab0cde8f10112233445566", "01234567-89ab-0cde-8f-10-11223344556g"])
def test_identifiers_are_taken_in_two_forms_alone(serve, device, sample, tmp_path, text):
    service = serve()
    service.control("fault", "reply", pool_info_reply(guid=text))
    trouble = Trouble((), "Unable to parse Pool ID string")
    with service.save(tmp_path, device) as run:
        expect_refused(service, run, device, sample, trouble)


def test_the_state_does_not_need_the_identifier(serve, device, tmp_path):
    service = serve()
    service.control("fault", "bad-guid", "--after", "1")
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.HELD_RUN


def test_results_without_a_value_are_good_ones(serve, device, tmp_path):
    service = serve()
    service.control("fault", "malformed", "no-attribute", "--next", "2")
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.HELD_RUN


def test_a_write_result_behind_the_first_chunk_is_no_refusal(serve, device, tmp_path):
    service = serve()
    text = pool_info_reply()
    padding = " " * (2048 - len(text))
    refused = "<writeResult><error>(7)</error></writeResult>"
    service.control("fault", "reply", text + padding + refused, "--next", "2")
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert service.holds_nothing()


def test_values_are_taken_out_of_a_cdata_section(serve, device, tmp_path):
    service = serve()
    text = pool_info_reply("<![CDATA[maintenance]]>")
    service.control("fault", "reply", text, "--next", "2")
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 0
    assert service.holds_nothing()


@pytest.mark.parametrize("state", [" maintenance", "maintenance\n", "&#109;aintenance"])
def test_a_state_is_taken_as_it_stands(serve, device, tmp_path, state):
    service = serve()
    service.control("fault", "reply", pool_info_reply(state), "--after", "1")
    with service.save(tmp_path, device) as run:
        assert run.wait_exit() == 1
    assert run.message.endswith("Pool is not in MAINTENANCE state")
    assert service.holds_nothing() and service.exchange_kinds() == servedrun.HELD_RUN


# The switch is written when the stream is flushed, and that the flush failed is told and no more:
# so the service takes the request for a switch, and refuses it.
@pytest.mark.parametrize("after", [0, 1])
def test_a_mode_switch_that_fails_is_told_and_the_channel_used(serve, device, sample, tmp_path,
                                                               after):
    service = serve()
    service.control("fault", "eio-switch", "--after", str(after))
    trouble = Trouble((), NO_ROOT_RESULT, [f"Unable to flush data 1: {IO_ERROR}",
                                           "Unable to flush data 3: Invalid argument"])
    with service.save(tmp_path, device) as run:
        expect_refused(service, run, device, sample, trouble)
    failed = ["open", "switch", "switch", "close"]
    assert service.exchange_kinds() == ([*REGISTERED, *failed, "drop"] if after else failed)
    assert service.spoken("switch")[-1] == servedrun.pool_info_request()


def test_a_service_without_a_management_file(serve, device, sample, tmp_path):
    # The service publishes elsewhere, and the place where it should is empty.
    service = serve("maintenance", "--mount", str(tmp_path / "elsewhere"))
    trouble = Trouble((), "Could not open command file",
                      [f'{OPEN_FAILURE}"No such file or directory"'])
    with service.save(tmp_path, device) as run:
        expect_refused(service, run, device, sample, trouble)
    assert service.exchange_kinds() == []


def test_nothing_of_a_run_is_left_for_the_next_one(serve, device, tmp_path):
    service = serve()
    for fault in ("refuse", "eio-open", "eio-read", "eio-write"):
        service.control("fault", fault, "--after", "1")
        with service.save(tmp_path, device) as run:
            assert run.wait_exit() == 1
        assert service.holds_nothing()
        with service.save(tmp_path, device) as run:
            assert run.wait_exit() == 0
        assert service.holds_nothing()
    assert service.one_file_at_a_time()
