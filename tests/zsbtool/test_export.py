"""`zsbtool export`: a set as tables, to be asked in SQL."""

import contextlib
import csv
import os
import pathlib
import shlex
import signal
import sqlite3
import zlib

import pytest

import damagedset
import poolTypes
import restoring
import scanset
import zsbtool
from damagedset import FAULTS, Set

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "zsbtool.md"


def ask(path, query):
    """The rows that the last of some statements gives."""
    with contextlib.closing(sqlite3.connect(path)) as database:
        rows = []
        for statement in query.split(";"):
            rows = database.execute(statement).fetchall()
        return rows


def table(path, name):
    """The rows of a table by the names of its columns, in the order in which they were written."""
    with contextlib.closing(sqlite3.connect(path)) as database:
        database.row_factory = sqlite3.Row
        return [dict(row) for row in database.execute(f"SELECT * FROM {name} ORDER BY rowid")]


def read_csv(folder, name):
    with open(folder / f"{name}.csv", encoding="utf-8", newline="") as file:
        return list(csv.DictReader(file, strict=True))


def wanted_records(made, *, content=False):
    return [{"block": block, "type": poolTypes.classify(data), "file": made.name(file.number),
             "index": index, "crc32": zlib.crc32(data), **({"content": data} if content else {})}
            for file in made.files for index, (block, data) in enumerate(file.records)]


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
@pytest.mark.parametrize("content", [False, True], ids=["numbers", "content"])
@pytest.mark.parametrize("jobs", ["1", "3"])
def test_every_record_is_a_row_in_the_order_of_the_set(tmp_path, compress, content, jobs):
    made = Set(compress=compress)
    source, path = made.write(tmp_path / "set"), tmp_path / "set.db"
    found = zsbtool.document("export", "--jobs", jobs, *["--content"] * content, source, "-o", path)
    assert found == {"format": 1, "command": "export", "database": str(path), "csv": None,
                     "files": 4, "records": 24, "problems": []}
    assert table(path, "records") == wanted_records(made, content=content)
    assert ask(path, "PRAGMA integrity_check") == [("ok",)]
    assert ask(path, "SELECT tbl_name FROM sqlite_master WHERE type = 'index'") == [("records",)]


def test_sets_and_files_are_what_their_headers_say(tmp_path):
    made = Set()
    source, path = made.write(tmp_path / "set"), tmp_path / "set.db"
    assert zsbtool.run("export", source, "-o", path).status == 0
    assert table(path, "sets") == [{
        "path": f"{source}/T0000000.ZRB", "scan_id": "03020100-0504-0706-08-09-0a0b0c0d0e0f",
        "pool": "POOL", "pool_blocks": 100, "created": "2023-11-14T22:13:20Z", "files": 4,
        "records": 24, "problems": ""}]
    assert table(path, "files") == [
        {"file": file.path.name, "number": number, "created": "2023-11-14T22:13:20Z",
         "closed": "2023-11-14T22:14:20Z", "flags": "last" if number == 3 else "",
         "compressed": 0, "bytes": 660 + 6 * 4104, "records": 6, "crc": file.header["crc"],
         "problems": ""}
        for number, file in enumerate(scanset.read_set(source, suffix="ZRB"))]


@pytest.mark.parametrize("content", [False, True], ids=["numbers", "content"])
def test_text_files_hold_the_same(tmp_path, content):
    made = Set()
    for file in made.files:
        file.fields["poolName"] = 'A "pool",\n'.encode("utf-16-le")
    made[1].damage.append(damagedset.never_closed)
    source = made.write(tmp_path / "set")
    zsbtool.document("export", *["--content"] * content, source, "-o", tmp_path / "set.db",
                     "--csv", tmp_path / "csv", status=2)
    assert sorted(os.listdir(tmp_path / "csv")) == ["files.csv", "records.csv", "sets.csv"]
    def shown(value):
        return "" if value is None else value.hex() if isinstance(value, bytes) else str(value)
    for name in ("sets", "files", "records"):
        assert read_csv(tmp_path / "csv", name) == [
            {column: shown(value) for column, value in row.items()}
            for row in table(tmp_path / "set.db", name)]
    assert read_csv(tmp_path / "csv", "sets")[0]["pool"] == 'A "pool",\n'


def test_the_worked_queries_answer_as_the_page_says(tmp_path):
    commands = [shlex.split(line) for line in DOCUMENT.read_text(encoding="utf-8").splitlines()
                if line.startswith("    sqlite3 ")]
    assert [command[:2] for command in commands] == [["sqlite3", "set.db"]] * 3
    types, changed, twins = [command[2] for command in commands]
    earlier, later = Set(), Set()
    damagedset.with_block(earlier, 2, b"MFL ")
    earlier[3].records[0] = (19, earlier[3].records[1][1])
    later[3].records[5] = (24, b"DirH" + bytes(4092))
    for made, name in ((earlier, "set"), (later, "later")):
        made.write(tmp_path / name)
        assert zsbtool.run("export", name, "-o", f"{name}.db", cwd=tmp_path).status == 0
    with contextlib.chdir(tmp_path):
        assert ask("set.db", types) == [
            ("BT leaf Z32", 22, 2, 24), ("MFL node", 1, 18, 18), ("SBH Z32", 1, 1, 1)]
        assert ask("set.db", changed) == [
            (18, "MFL node", "BT leaf Z32"), (19, "BT leaf Z32", "BT leaf Z32"),
            (24, "BT leaf Z32", "NT node")]
        assert ask("set.db", twins) == [(zlib.crc32(earlier[3].records[0][1]), 2, "19,20")]


@pytest.mark.parametrize("fault", [fault for fault in FAULTS
                                   if False in fault.kinds and fault.code != "block-twice"],
                         ids=lambda fault: fault.name)
def test_what_can_be_read_of_a_set_with_problems_is_written(tmp_path, fault):
    made = Set()
    fault.plant(made)
    found = zsbtool.document("export", made.write(tmp_path / "set"), "-o", tmp_path / "set.db",
                             status=0 if fault.name == "two files swapped" else 2)
    codes = [row["code"] for row in found["problems"]]
    assert codes == ([] if fault.name == "two files swapped" else [fault.code])
    [(problems, records)] = ask(tmp_path / "set.db", "SELECT problems, records FROM sets")
    assert problems.split() == codes
    assert records == found["records"] == len(table(tmp_path / "set.db", "records"))


def test_block_numbers_of_any_size_are_written(tmp_path):
    (tmp_path / "set").mkdir()
    scanset.write_file(tmp_path / "set/T0000000.ZSB", restoring.records([2**63 - 1, 2**63 + 2**40]))
    zsbtool.document("export", tmp_path / "set", "-o", tmp_path / "set.db", "--csv",
                     tmp_path / "csv", status=2)
    assert ask(tmp_path / "set.db", "SELECT block FROM records") == [
        (2**63 - 1,), (float(2**63 + 2**40),)]
    assert [row["block"] for row in read_csv(tmp_path / "csv", "records")] == [
        str(2**63 - 1), str(2**63 + 2**40)]


def test_people_get_one_line_for_each_output(tmp_path, golden):
    made = Set()
    made[1].fields["crc"] = 1
    made.write(tmp_path / "set")
    shown = zsbtool.run("export", "set", "-o", "set.db", "--csv", "csv", cwd=tmp_path)
    assert (shown.status, shown.err) == (2, "")
    golden("export.txt", shown.text)
    shown = zsbtool.run("export", "--json", "set", "--csv", "again", cwd=tmp_path)
    golden("export.json", shown.text)


def test_a_database_that_is_there_is_replaced_when_the_new_one_is_whole(tmp_path):
    source, path = Set().write(tmp_path / "set"), tmp_path / "set.db"
    path.write_bytes(b"old")
    assert zsbtool.run("export", tmp_path / "missing", "-o", path).status == 1
    assert path.read_bytes() == b"old"
    assert zsbtool.run("export", source, "-o", path).status == 0
    assert len(table(path, "records")) == 24
    assert sorted(os.listdir(tmp_path)) == ["set", "set.db"]


def test_a_set_of_one_empty_file(tmp_path):
    (tmp_path / "set").mkdir()
    scanset.write_file(tmp_path / "set/T0000000.ZSB")
    found = zsbtool.document("export", tmp_path / "set", "-o", tmp_path / "set.db")
    assert (found["files"], found["records"]) == (1, 0)
    assert table(tmp_path / "set.db", "records") == []
    assert len(table(tmp_path / "set.db", "files")) == 1


def test_names_that_are_not_ascii(tmp_path):
    made = Set()
    for file in made.files:
        file.fields["poolName"] = "Käse\xff".encode("utf-16-le")
    source, path = made.write(tmp_path / "größer"), tmp_path / "Menge.db"
    assert zsbtool.run("export", source, "-o", path).status == 0
    [row] = table(path, "sets")
    assert (row["pool"], row["path"]) == ("K\ufffdse\ufffd", f"{source}/T0000000.ZRB")


@pytest.mark.parametrize("typed", [
    ("set",), ("missing", "-o", "set.db"), ("empty", "-o", "set.db"),
    ("set", "-o", "missing/set.db"), ("set", "-o", "empty"), ("set", "-o", "/dev/null"),
    ("set", "--csv", "set"), ("set", "-o", "set.db", "--csv", "missing/csv")])
def test_what_cannot_run_ends_with_1_and_leaves_nothing(tmp_path, typed):
    Set().write(tmp_path / "set")
    (tmp_path / "empty").mkdir()
    shown = zsbtool.run("export", *typed, cwd=tmp_path)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.startswith("zsbtool: ")
    assert sorted(os.listdir(tmp_path)) == ["empty", "set"]


def test_a_file_that_cannot_be_read_is_a_fault_of_the_set(somebody):
    made = Set()
    source = made.write(somebody.folder / "set")
    source.chmod(0o755)
    (source / made.name(1)).chmod(0)
    somebody.folder.chmod(0o777)
    shown = zsbtool.run("export", "--json", source, "-o", somebody.folder / "set.db",
                        **somebody.how)
    found = zsbtool.checked("export", shown.out)
    assert (shown.status, found["records"]) == (2, 18)
    assert [(row["code"], row["file"]) for row in found["problems"]] == [
        ("unreadable", made.name(1))]


@pytest.mark.parametrize("option", ["-o", "--csv"])
def test_a_full_file_system_ends_with_1_and_leaves_nothing(tmp_path, small_disk, option):
    source, out = Set().write(tmp_path / "set"), tmp_path / "disk"
    out.mkdir()
    shown = zsbtool.run("export", "--content", source, option, out / "new",
                        before=small_disk(out, "64k"))
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {out / 'new'}: No space left on device\n"


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
@pytest.mark.parametrize("option", ["-o", "--csv"])
def test_a_signal_leaves_nothing(tmp_path, number, option):
    source = Set().write(tmp_path / "set")
    ended = zsbtool.signalled(number, "export", source, option, tmp_path / "out")
    assert (ended.status, ended.text, os.listdir(tmp_path)) == (-number, "", ["set"])
