"""`zsbtool status`: a number from the screen or the log explains itself."""

import pytest

import zsbtool


@pytest.mark.parametrize("typed, number, hexadecimal, source, name", [
    ("582635548", 582635548, "22ba501c", "system", "ENOSPC"),
    ("22ba501c", 582635548, "22ba501c", "system", "ENOSPC"),
    ("0x22BA501C", 582635548, "22ba501c", "system", "ENOSPC"),
    ("4e84", 20100, "4e84", "catalogue", "zERR_END_OF_FILE"),
    ("20100", 20100, "4e84", "catalogue", "zERR_END_OF_FILE"),
    ("4294967294", -2, "fffffffe", "compressor", "Z_STREAM_ERROR"),
    ("-2", -2, "fffffffe", "compressor", "Z_STREAM_ERROR"),
    ("fffffffe", -2, "fffffffe", "compressor", "Z_STREAM_ERROR"),
    ("22114ffd", 571559933, "22114ffd", "zlib", "Z_DATA_ERROR"),
    ("571559931", 571559931, "22114ffb", "zlib", "Z_BUF_ERROR"),
    ("0", 0, "0", "catalogue", "zOK"),
    ("-1", -1, "ffffffff", "catalogue", "zFAILURE"),
    ("-150", -150, "ffffff6a", "catalogue", "DSERR_NO_ALLOC_SPACE"),
    ("24999", 24999, "61a7", "catalogue", "zERR_GENERIC_OSTREL_ERROR"),
    ("28", 28, "1c", "system", "ENOSPC"),
])
def test_a_status_has_a_source_and_a_name(typed, number, hexadecimal, source, name):
    found = zsbtool.document("status", typed)
    assert (found["number"], found["hex"]) == (number, hexadecimal)
    assert (found["source"], found["name"]) == (source, name)
    assert found["text"]


@pytest.mark.parametrize("typed, text", [
    ("22da5e25", "a scan file failed validation: no records, or a wrong CRC"),
    ("28001", "no failure: the scan file is still being written"),
    ("22ba5000", "no system error: a file ended too early"),
])
def test_a_status_of_the_tool_itself_has_a_text_without_a_name(typed, text):
    found = zsbtool.document("status", typed)
    assert (found["name"], found["text"]) == (None, text)


def test_digits_that_mean_something_in_a_log_too_show_both():
    found = zsbtool.document("status", "12")
    assert (found["number"], found["name"]) == (12, "ENOMEM")
    in_log = found["inLog"]
    assert (in_log["number"], in_log["hex"], in_log["name"]) == (18, "12", "EXDEV")


def test_digits_that_mean_nothing_in_a_log_show_one():
    assert zsbtool.document("status", "20826")["inLog"] is None
    assert zsbtool.document("status", "4e84")["inLog"] is None


def test_an_unknown_number_is_said_to_be_unknown():
    found = zsbtool.document("status", "19999")
    assert [found[key] for key in ("source", "name", "text")] == [None, None, None]
    shown = zsbtool.run("status", "19999")
    assert (shown.status, shown.text) == (0, "19999 (4e1f): no status that this tool knows\n")


def test_people_get_a_line_for_each_reading():
    shown = zsbtool.run("status", "12")
    assert shown.text == ("12 (c): system, ENOMEM: Cannot allocate memory\n"
                          "in a log: 18 (12): system, EXDEV: Invalid cross-device link\n")


@pytest.mark.parametrize("typed", ["x", "", "12x", "--", "4294967296", "-2147483649", "1 2", "-ff",
                                   "100000000000000000000", "0x"])
def test_what_is_no_number_of_32_bits_is_refused(typed):
    shown = zsbtool.run("status", typed)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.startswith("zsbtool: ")
