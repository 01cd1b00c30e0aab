"""`zsbtool log`: every run of a log as data."""

import json
import pathlib

import pytest

import ostrelscan
import saving
import zsbtool

RUNS = pathlib.Path(__file__).resolve().parent / "logs" / "runs.log"  # of real runs

HEADER = """<ostrelscan>
ostrelscan - KUVO Pool Scanner
  Version: 2.00
  Build: Jan  9 2024 at 16:05:31
<CommandLine>
 <argv index="0x0" argv="ostrelscan" />
</CommandLine>
<CurrentTime time="Nov 14, 2023  10:13:20 PM  +0000" timeValue="1700000000" />
"""


def written(tmp_path, text):
    path = tmp_path / "ostrelscan.log"
    path.write_bytes(text if isinstance(text, bytes) else text.encode())
    return path


def runs_of(tmp_path, text):
    return zsbtool.document("log", written(tmp_path, text))["runs"]


def test_a_log_of_real_runs_is_told_as_it_always_was(golden):
    shown = zsbtool.run("log", "--json", RUNS)
    assert (shown.status, shown.err) == (0, "")
    golden("log.json", shown.text)
    zsbtool.checked("log", shown.text)


def test_a_log_of_real_runs_is_told_to_people_as_it_always_was(golden):
    shown = zsbtool.run("log", RUNS)
    assert (shown.status, shown.err) == (0, "")
    golden("log.txt", shown.text)


def test_the_last_run_is_told_with_its_files_and_lines(golden):
    shown = zsbtool.run("log", "--last", RUNS)
    assert (shown.status, shown.err) == (0, "")
    golden("log-last.txt", shown.text)


def test_people_see_the_files_of_the_last_run(tmp_path):
    written(tmp_path, HEADER + "Current Scan File History:\n./T0000000.ZSB\t0\t1895074553\t2555\t2555\n"
            "./T0000001.ZSB\t20017\t18446744073709551615\t2555\t7\n\nDumpScanHistory Done \n"
            "</ostrelscan>\n")
    shown = zsbtool.run("log", "--last", tmp_path).text
    assert ("\n\nfile            blocks  crc         status\n"
            "./T0000000.ZSB    2555  1895074553  good\n"
            "./T0000001.ZSB       7  -           20017\n\n") in shown


def test_every_kind_of_end_has_its_status():
    runs = zsbtool.document("log", RUNS)["runs"]
    assert [run["number"] for run in runs] == list(range(1, 11))
    assert [run["status"] for run in runs] == [0, 0, 582635522, 1, 0, None, 0, 0, 582635520, 20008]
    assert [run["closed"] for run in runs] == [number != 6 for number in range(1, 11)]
    assert runs[2]["statusName"] == "ENOENT"
    assert (runs[5]["statusName"], runs[5]["statusText"]) == (None, None)
    assert runs[9]["statusName"] == "zERR_BAD_PARAMETER_VALUE"


def test_the_last_run_keeps_its_number():
    last, = zsbtool.document("log", "--last", RUNS)["runs"]
    assert last["number"] == 10


def test_a_run_is_told_as_it_was(pool, tmp_path):
    made = pool(size="16M")
    made.copy_to(tmp_path / "pool.img")
    run = saving.save("pool.img", tmp_path, preload=True)
    assert run.status == 0
    told, = zsbtool.document("log", tmp_path)["runs"]
    file, = saving.assert_saved(tmp_path, saving.expected(tmp_path / "pool.img"))
    times = run.log_run.times
    assert told["arguments"] == [str(ostrelscan.tool()), "--automatic", "--bypass-ostrel", "save",
                                 "DATA", "pool.img"]
    assert told["options"] == {"path": "./", "deviceName": "pool.img", "poolName": "DATA",
                               "compress": False, "sectors": True, "start": 0, "end": 0}
    assert (told["start"], told["end"]) == tuple(map(zsbtool.iso_time, times))
    assert told["files"] == [{"name": "./T0000000.ZSB", "status": 0, "crc": file.header["crc"],
                              "total": 2555, "current": len(file.records)}]
    assert (told["readErrors"], told["writeErrors"]) == (0, 0)
    assert (told["status"], told["statusName"]) == (0, "zOK")


def test_without_a_name_it_is_the_log_of_this_folder():
    here = zsbtool.run("log", "--json", cwd=RUNS.parent)
    assert (here.status, here.text) == (1, "")
    assert "ostrelscan.log: No such file or directory" in here.err


def test_a_run_that_began_before_the_last_one_ended_ends_that(tmp_path):
    first, second = runs_of(tmp_path, HEADER + HEADER + "</ostrelscan>\n")
    assert (first["closed"], second["closed"]) == (False, True)
    assert first["end"] is None


def test_a_log_that_is_cut_anywhere_is_read_as_far_as_it_goes(tmp_path):
    whole = RUNS.read_bytes()
    path = tmp_path / "cut.log"
    for length in [*range(0, 1600, 17), *range(1600, len(whole), 611), len(whole)]:
        path.write_bytes(whole[:length])
        runs = zsbtool.document("log", path)["runs"]
        assert len(runs) == whole[:length].count(b"<ostrelscan>")


def test_arguments_stand_as_they_were_typed(tmp_path):
    typed = ['a"b', "x\ny", '" />', "ä&<", "</CommandLine>x", "\t"]
    lines = "".join(f' <argv index="{i:#x}" argv="{word}" />\n' for i, word in enumerate(typed))
    text = HEADER.replace(' <argv index="0x0" argv="ostrelscan" />\n', lines)
    run, = runs_of(tmp_path, text + "</ostrelscan>\n")
    assert run["arguments"] == typed


def test_bytes_that_are_no_utf8_are_replaced(tmp_path):
    text = HEADER.encode() + b"name \xff\xfe\nescape \x1b[2J\n</ostrelscan>\n"
    run, = runs_of(tmp_path, text)
    assert run["messages"] == ["name \ufffd\ufffd", "escape \x1b[2J"]
    shown = zsbtool.run("log", "--last", tmp_path)
    assert "name \\xff\\xfe\nescape \\x1b[2J\n" in shown.text


def test_a_file_name_may_hold_what_parts_the_fields(tmp_path):
    text = HEADER + ("Current Scan File History:\na\tb/T0000000.ZSB\t20017\t5\t2555\t7\n\n"
                     "DumpScanHistory Done \n</ostrelscan>\n")
    run, = runs_of(tmp_path, text)
    assert run["files"] == [{"name": "a\tb/T0000000.ZSB", "status": 20017, "crc": 5, "total": 2555,
                             "current": 7}]


def test_lines_that_only_look_like_data_are_messages(tmp_path):
    odd = ["<CurrentTime time=x timeValue=\"12x\" />", "Blocks in pool are many",
           "<Path>p</Path>", "TrackReadErrorStats of old"]
    run, = runs_of(tmp_path, HEADER + "\n".join(odd) + "\n</ostrelscan>\n")
    assert run["messages"] == odd


def test_what_stands_outside_of_all_runs_is_skipped(tmp_path):
    run, = runs_of(tmp_path, "stray\n</ostrelscan>\n" + HEADER + "</ostrelscan>\nstray\n")
    assert (run["closed"], run["messages"]) == (True, [])


def test_a_log_without_runs(tmp_path):
    assert runs_of(tmp_path, "") == []
    last = zsbtool.run("log", "--last", tmp_path)
    assert (last.status, last.text) == (1, "")
    assert last.err.endswith(": there is no run\n")


@pytest.mark.parametrize("arguments", [("log",), ("log", "--json"), ("bad-blocks",)])
def test_a_log_that_is_not_there_ends_with_1(tmp_path, arguments):
    for path in (tmp_path / "none.log", tmp_path):
        shown = zsbtool.run(*arguments, path)
        assert (shown.status, shown.text) == (1, "")
        assert shown.err.endswith("log: No such file or directory\n")


def test_numbers_are_numbers(tmp_path):
    raw = json.loads(zsbtool.run("log", "--json", RUNS).text)
    options = raw["runs"][0]["options"]
    assert (options["compress"], options["start"]) == (False, 0)
