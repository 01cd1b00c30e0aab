"""The restore's questions, answered on a terminal, and what a refusal leaves alone."""

import os
import subprocess
import time

import pytest

import ostrelscan
import poolTypes
import restoring
import scanset
import screen
from layout import CONSENT, PAUSE, consent_rows, other_name_rows, table_rows

FAILED = "Scan failed (see ostrelscan.log for more details): 20008"
BEFORE = b"what stood there before"
RECORDS = restoring.records(range(3)) + restoring.records([7], b"PASM")

WARNINGS = list(consent_rows("set/", "DATA").values())[:4]
OTHER_NAME = list(other_name_rows("set/", "OTHER", "DATA").values())[:3]


@pytest.fixture
def folder(tmp_path):
    """A folder with a device and no scan file yet."""
    folder = restoring.make_folder(tmp_path / "run")
    (folder / "device").write_bytes(BEFORE)
    return folder


@pytest.fixture
def same_name(folder):
    scanset.write_set(folder / "set", RECORDS, pool_name="DATA")
    return folder


@pytest.fixture
def other_name(folder):
    scanset.write_set(folder / "set", RECORDS, pool_name="OTHER")
    return folder


def open_terminal(folder, *options, before=(), rows=25, columns=80, pool="data"):
    argv = [*before, ostrelscan.tool(), "--bypass-ostrel", "--validation-skip",
            *restoring.arguments("device", *options, pool=pool)]
    return screen.Terminal(argv, cwd=folder, rows=rows, columns=columns,
                           env=restoring.without_leak_check() if before else None)


def press(terminal, key):
    if key in screen.KEYS:
        terminal.key(key)
    else:
        terminal.send(key)


def last_log(folder):
    text = (folder / ostrelscan.LOG_NAME).read_text(encoding="utf-8")
    return ostrelscan.split_log(text)[-1]


def body_without_times(log_run):
    return [line for line in log_run.body if not line.startswith("<CurrentTime ")]


def expect_refused(terminal, folder, told=()):
    """The run has ended as a refused one: status, screen and log, and the device as it was."""
    assert terminal.wait_exit() == 1
    assert terminal.now().text.strip() == FAILED
    log_run = last_log(folder)
    assert log_run.closed
    assert body_without_times(log_run) == [*told, "deleting the UI_ScreenID object"]
    assert (folder / "device").read_bytes() == BEFORE


def expect_restored(terminal, folder):
    terminal.wait_for(PAUSE.strip())
    terminal.send("x")
    assert terminal.wait_exit() == 0
    assert FAILED not in terminal.now().text
    written = {number: block for number, block in poolTypes.blocks(folder / "device")}
    assert written == dict(RECORDS[:3])


def expect_screen(picture, texts):
    """The screen shows these texts and nothing else, each character white on blue. `texts` has
    for each row its text and whether it is bold."""
    for row, shown in enumerate(picture.rows):
        text, bold = texts.get(row, ("", False))
        assert shown == text[:80].ljust(80), row
        for column in range(80):
            cell = picture.cell(row, column)
            if cell.data != " ":
                assert (cell.fg, cell.bg, cell.bold) == ("white", "blue", bold), (row, column)


# The first question

REFUSING = ["n", "N", "enter", "keypad enter", "escape", "\n"]


def test_the_first_question_stands_where_it_should(same_name):
    with open_terminal(same_name) as terminal:
        terminal.wait_for(CONSENT)
        terminal.pump(0.2)
        picture = terminal.now()
        expect_screen(picture, {18: (WARNINGS[0], False), 19: (WARNINGS[1], True),
                                20: (WARNINGS[2], True), 21: (WARNINGS[3], True),
                                23: (f"{CONSENT} n", False)})
        assert picture.cursor == (23, len(CONSENT) + 1), "on the default"
        terminal.key("escape")
        expect_refused(terminal, same_name)


def test_a_wide_terminal_shows_the_whole_warning(same_name):
    with open_terminal(same_name, rows=40, columns=132) as terminal:
        picture = terminal.wait_for(CONSENT)
        assert [row.rstrip() for row in picture.rows[18:22]] == WARNINGS
        terminal.send("n")
        expect_refused(terminal, same_name)


@pytest.mark.parametrize("key", REFUSING)
def test_the_first_question_is_refused_by(same_name, key):
    with open_terminal(same_name) as terminal:
        terminal.wait_for(CONSENT)
        press(terminal, key)
        expect_refused(terminal, same_name)
        assert terminal.bells == 0


@pytest.mark.parametrize("key", ["y", "Y"])
def test_the_first_question_is_agreed_to_by(same_name, key):
    with open_terminal(same_name) as terminal:
        terminal.wait_for(CONSENT)
        press(terminal, key)
        expect_restored(terminal, same_name)


OTHER_KEYS = ["x", " ", "1", "\t", "\x19", "backspace", "delete", "insert", "up", "down", "left",
              "right", "home", "end", "page up", "page down", "f1"]


def test_other_keys_beep_and_leave_the_question(same_name):
    with open_terminal(same_name) as terminal:
        question = terminal.wait_for(CONSENT).text
        for count, key in enumerate(OTHER_KEYS, 1):
            press(terminal, key)
            terminal.wait_for(lambda _, wanted=count: terminal.bells == wanted)
        terminal.pump(0.2)
        assert (terminal.bells, terminal.now().text) == (len(OTHER_KEYS), question)
        assert (same_name / "device").read_bytes() == BEFORE
        terminal.send("n")
        expect_refused(terminal, same_name)


@pytest.mark.parametrize("keys", ["y", "Y", "y\n", "yyyyyyyy", "xy"])
def test_keys_typed_ahead_never_agree(same_name, keys):
    await_start = ["sh", "-c", 'until [ -e start ]; do sleep 0.05; done; exec "$@"', "sh"]
    with open_terminal(same_name, before=await_start) as terminal:
        terminal.send(keys)
        terminal.pump(0.2)
        (same_name / "start").touch()
        terminal.wait_for(CONSENT)
        terminal.pump(0.3)
        assert f"{CONSENT} n" in terminal.now().text
        assert (same_name / "device").read_bytes() == BEFORE
        terminal.send("n")
        expect_refused(terminal, same_name)


def test_a_resized_terminal_keeps_the_question(same_name):
    with open_terminal(same_name) as terminal:
        terminal.wait_for(CONSENT)
        for rows, columns in ((40, 132), (30, 100)):
            terminal.resize(rows, columns)
            terminal.pump(0.4)
            terminal.wait_for(CONSENT)
        assert (same_name / "device").read_bytes() == BEFORE
        terminal.send("y")
        expect_restored(terminal, same_name)


# The second question

READER = ["warning: different zlib version"]


def reach_second(terminal):
    terminal.wait_for(CONSENT)
    terminal.send("y")
    return terminal.wait_for("for a pool called OTHER")


def test_the_second_question_stands_where_it_should(other_name):
    with open_terminal(other_name) as terminal:
        reach_second(terminal)
        terminal.wait_for(f"{CONSENT} n")
        terminal.pump(0.2)
        picture = terminal.now()
        expect_screen(picture, {18: (OTHER_NAME[0], False), 19: (OTHER_NAME[1], False),
                                20: (OTHER_NAME[2], True), 21: (f"{CONSENT} n", False)})
        assert picture.cursor == (21, len(CONSENT) + 1)
        terminal.send("n")
        expect_refused(terminal, other_name, READER)


@pytest.mark.parametrize("key", REFUSING)
def test_the_second_question_is_refused_by(other_name, key):
    with open_terminal(other_name) as terminal:
        reach_second(terminal)
        terminal.wait_for(f"{CONSENT} n")
        press(terminal, key)
        expect_refused(terminal, other_name, READER)


@pytest.mark.parametrize("key", ["y", "Y"])
def test_the_second_question_is_agreed_to_by(other_name, key):
    with open_terminal(other_name) as terminal:
        reach_second(terminal)
        terminal.wait_for(f"{CONSENT} n")
        press(terminal, key)
        expect_restored(terminal, other_name)


def test_other_keys_leave_the_second_question_too(other_name):
    with open_terminal(other_name) as terminal:
        reach_second(terminal)
        terminal.wait_for(f"{CONSENT} n")
        for count, key in enumerate(("x", "f1", "left"), 1):
            press(terminal, key)
            terminal.wait_for(lambda _, wanted=count: terminal.bells == wanted)
        terminal.key("enter")
        expect_refused(terminal, other_name, READER)


def test_an_answer_to_the_first_question_is_none_to_the_second(other_name):
    with open_terminal(other_name) as terminal:
        terminal.wait_for(CONSENT)
        terminal.send("yyyyy")
        terminal.wait_for("for a pool called OTHER")
        terminal.pump(0.3)
        assert f"{CONSENT} n" in terminal.now().text
        assert (other_name / "device").read_bytes() == BEFORE
        terminal.send("n")
        expect_refused(terminal, other_name, READER)


@pytest.mark.parametrize("stored", ["data", "Data", "DATA"])
def test_names_that_differ_in_case_alone_are_the_same(folder, stored):
    scanset.write_set(folder / "set", RECORDS, pool_name=stored)
    with open_terminal(folder, pool="dAtA") as terminal:
        terminal.wait_for(CONSENT)
        terminal.send("y")
        expect_restored(terminal, folder)


@pytest.mark.parametrize("stored", ["DAT", "DATA2", "", " DATA", "%s%n"])
def test_names_that_differ_otherwise_are_asked_about(folder, stored):
    scanset.write_set(folder / "set", RECORDS, pool_name=stored)
    with open_terminal(folder) as terminal:
        terminal.wait_for(CONSENT)
        terminal.send("y")
        terminal.wait_for(f"The scan files at set/ are for a pool called {stored}.")
        terminal.send("n")
        expect_refused(terminal, folder, READER)


def test_a_name_longer_than_its_buffer_is_shown_cut(folder):
    scanset.write_set(folder / "set", RECORDS, poolName="N".encode("utf-16-le") * 256)
    with open_terminal(folder, columns=200) as terminal:
        terminal.wait_for(CONSENT)
        terminal.send("y")
        terminal.wait_for(f"called {'N' * 127}.")
        terminal.send("n")
        expect_refused(terminal, folder, READER)


@pytest.mark.parametrize("content", [b"", b"SCAN", bytes(659)])
def test_a_file_without_a_header_names_no_pool(folder, content):
    (folder / "set" / "T0000000.ZRB").write_bytes(content)
    with open_terminal(folder) as terminal:
        terminal.wait_for(CONSENT)
        terminal.send("y")
        terminal.wait_for("The scan files at set/ are for a pool called .")
        terminal.key("enter")
        expect_refused(terminal, folder, READER)


# Without questions


def test_automatic_never_asks_even_for_another_pool(other_name):
    with open_terminal(other_name, "--automatic") as terminal:
        assert terminal.wait_exit() == 0
        for text in (b"Do you wish", b"WARNING", b"Press"):
            assert text not in terminal.output
        assert terminal.last_full().rows[0].rstrip() == ' Restoring to pool DATA from "set/".'
    assert dict(poolTypes.blocks(other_name / "device")) == dict(RECORDS[:3])


@pytest.mark.parametrize("typed", [None, b"", b"y\ny\n"],
                         ids=["nothing", "a file at its end", "a yes typed ahead"])
def test_standard_input_at_its_end_refuses(same_name, typed):
    argv = [ostrelscan.tool(), "--bypass-ostrel", "--validation-skip",
            *restoring.arguments("device", pool="data")]
    keys = same_name / "keys"  # a file has its keys ready before the question, a pipe may not
    keys.write_bytes(typed or b"")
    with open(os.devnull if typed is None else keys, "rb") as stdin:
        done = subprocess.run(argv, cwd=same_name, stdin=stdin, capture_output=True, timeout=60,
                              check=False, env={**os.environ, "TERM": "xterm-256color"})
    assert done.returncode == 1
    assert done.stdout.decode(errors="replace").endswith(f"\n{FAILED}\n")
    assert (same_name / "device").read_bytes() == BEFORE


# The screen of a restore


def bold_free(rows):
    return {row: (text, False) for row, text in rows.items()}


def test_the_end_of_a_restore_is_shown_cell_by_cell(same_name):
    with open_terminal(same_name) as terminal:
        terminal.wait_for(CONSENT)
        terminal.send("y")
        terminal.wait_for(PAUSE.strip())
        terminal.pump(0.2)
        rows = bold_free(table_rows({"BT leaf Z32": 3, "MSAP": 1}, {"MSAP", "User"}))
        rows[0] = (' Restoring to pool DATA from "set/".', False)
        rows[22] = (" set/T0000000.ZRB     4 of 4", False)
        rows[24] = (PAUSE, False)
        expect_screen(terminal.now(), rows)
        terminal.send("x")
        assert terminal.wait_exit() == 0
    options = ["<Options>", "<Path>set/</Path>", "<PoolName>DATA</PoolName>", "<Start>0</Start>",
               "<End>0</End>", "</Options>", ""]
    assert body_without_times(last_log(same_name)) == [
        *READER, *options, "In RunRestoreMain(start)", "util/ostrelscan/scanEngine[738]", *READER,
        "util/ostrelscan/scanEngine[1041]ZRB EOF found", "In RunRestoreMain(exit)", "Done ", "",
        "Current Scan File History:", f"set/T0000000.ZRB\t0\t{2**64 - 1}\t4\t4", "",
        "DumpScanHistory Done ", "deleting the UI_ScreenID object"]


def test_all_blocks_selects_user_but_never_msap(same_name):
    with open_terminal(same_name, "-a") as terminal:
        terminal.wait_for(CONSENT)
        terminal.send("y")
        picture = terminal.wait_for(PAUSE.strip())
        assert "User +        0" in picture.text and "MSAP -        1" in picture.text
        terminal.send("x")
        assert terminal.wait_exit() == 0


def test_a_failed_restore_shows_why_and_waits(folder):
    scanset.write_set(folder / "set", RECORDS, pool_name="DATA", flags=0)
    with open_terminal(folder) as terminal:
        terminal.wait_for(CONSENT)
        terminal.send("y")
        terminal.wait_for(PAUSE.strip())
        terminal.pump(0.2)
        rows = bold_free(table_rows({"BT leaf Z32": 3, "MSAP": 1}, {"MSAP", "User"}))
        rows[0] = (' Restoring to pool DATA from "set/".', False)
        rows[19] = ("Could not restore complete pool - 20444", False)
        rows[21] = (" set/T0000000.ZRB     4 of 4", False)
        rows[22] = (" set/T0000001.ZRB     Error(20444)", False)
        rows[24] = (PAUSE, False)
        expect_screen(terminal.now(), rows)
        terminal.send("x")
        assert terminal.wait_exit() == 1
        assert terminal.now().text.strip() == FAILED.replace("20008", "20444")
    assert "util/ostrelscan/scanUI[727] Could not restore complete pool - 20444" in \
        last_log(folder).body


# Files that cannot be checked

NO_FILE_LINES = [
    "warning: different zlib version",
    "util/common/zsbFile[1782] Could not open set/T0000000.ZRB because No such file or directory",
    "util/common/zsbFile[1782] Could not open set/C0000000.ZRB because No such file or directory",
    "Could not open ZRB file:  4fdc",
    "util/ostrelscan/scanUI[532] util/ostrelscan/scanUI[565] 4fcf Could not open ZRB file",
]


def test_a_folder_without_scan_files_is_told_and_refused(folder):
    with open_terminal(folder) as terminal:
        terminal.wait_for(CONSENT)
        terminal.send("y")
        terminal.wait_for(PAUSE.strip())
        terminal.pump(0.2)
        expect_screen(terminal.now(), {19: ("Could not open ZRB file - 20431", False),
                                       24: (PAUSE, False)})
        terminal.send("x")
        expect_refused(terminal, folder, NO_FILE_LINES)


def test_a_folder_without_scan_files_is_refused_automatically(folder):
    with open_terminal(folder, "--automatic") as terminal:
        expect_refused(terminal, folder, NO_FILE_LINES)
        assert terminal.last_full().rows[19].rstrip() == "Could not open ZRB file - 20431"
        assert b"Press" not in terminal.output


def test_scan_files_still_named_zsb_are_not_restored(folder):
    scanset.write_set(folder / "set", RECORDS, suffix="ZSB", pool_name="DATA")
    with open_terminal(folder, "--automatic") as terminal:
        expect_refused(terminal, folder, NO_FILE_LINES)


def test_a_path_that_no_reader_takes_is_told_and_refused(folder):
    argv = [ostrelscan.tool(), "--automatic", "--bypass-ostrel", "--danger", "-P", "/" * 512,
            "restore", "data", "device"]
    with screen.Terminal(argv, cwd=folder) as terminal:
        expect_refused(terminal, folder, [
            "Exception while attempting to open a ZSBFile Object:  "
            "strlen( zsbFilePath ) >= sizeof( ZF_Path )",
            "util/ostrelscan/scanUI[532] util/ostrelscan/scanUI[557] 61a7 Could not open ZRB file"])
        assert terminal.last_full().rows[19].rstrip() == "Could not open ZRB file - 24999"


def test_a_file_that_does_not_close_is_told_and_refused(same_name):
    path = str(same_name / "set" / "T0000000.ZRB")
    trace = restoring.trace_command(same_name / "trace.txt", "close", "-P", path, "-e",
                                    "inject=close:error=EIO:when=1")
    with open_terminal(same_name, "--automatic", before=trace) as terminal:
        expect_refused(terminal, same_name, [
            *READER, "STATUS ZSBFile::OpenClose(): Input/output error",
            "Could not close ZRB file:  22ba5005",
            "util/ostrelscan/scanUI[532] util/ostrelscan/scanUI[575] 61a7 "
            "Could not close ZRB file"])
        assert terminal.last_full().rows[19].rstrip() == "Could not close ZRB file - 24999"


# A refusal touches nothing


def agree_then(key):
    def answer(terminal):
        reach_second(terminal)
        terminal.wait_for(f"{CONSENT} n")
        press(terminal, key)
    return answer


def first(key):
    def answer(terminal):
        terminal.wait_for(CONSENT)
        press(terminal, key)
    return answer


def agree_and_look(terminal):
    terminal.wait_for(CONSENT)
    terminal.send("y")
    terminal.wait_for(PAUSE.strip())
    terminal.send("x")


REFUSALS = {
    **{f"first {key!r}": ("OTHER", first(key)) for key in REFUSING},
    **{f"second {key!r}": ("OTHER", agree_then(key)) for key in REFUSING},
    "no scan file": (None, agree_and_look),
    "hung up": ("OTHER", lambda terminal: (terminal.wait_for(CONSENT), terminal.child.close())),
}


def opened_for_writing(trace, name):
    return [call for call in restoring.traced_calls(trace)
            if name in call.arguments and ("O_WRONLY" in call.arguments
                                           or "O_RDWR" in call.arguments
                                           or "O_CREAT" in call.arguments
                                           or call.name in ("creat", "truncate"))]


@pytest.mark.parametrize("way", REFUSALS)
def test_a_refused_restore_opens_no_device(folder, way):
    stored, refuse = REFUSALS[way]
    if stored:
        scanset.write_set(folder / "set", RECORDS, pool_name=stored)
    device = folder / "device"
    before = device.stat()
    trace = folder / "trace.txt"
    command = restoring.trace_command(trace, "openat,open,creat,truncate,unlink,rename")
    with open_terminal(folder, before=command) as terminal:
        refuse(terminal)
        if not terminal.child.closed:
            assert terminal.wait_exit() == 1
    time.sleep(0.05)
    assert [call for call in restoring.traced_calls(trace) if ostrelscan.LOG_NAME in call.arguments]
    assert opened_for_writing(trace, "device") == []
    after = device.stat()
    assert device.read_bytes() == BEFORE
    assert (after.st_mtime_ns, after.st_ctime_ns) == (before.st_mtime_ns, before.st_ctime_ns)


def test_an_agreed_restore_opens_its_device_once_after_the_answer(same_name):
    trace = same_name / "trace.txt"
    command = restoring.trace_command(trace, "openat,open,creat,truncate")
    with open_terminal(same_name, before=command) as terminal:
        terminal.wait_for(CONSENT)
        assert opened_for_writing(trace, "device") == []
        terminal.send("y")
        expect_restored(terminal, same_name)
    assert len(opened_for_writing(trace, '"device"')) == 1
