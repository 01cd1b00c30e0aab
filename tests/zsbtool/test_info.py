"""`zsbtool info`: the headers of a set, or of one file."""

import os

import pytest

import damagedset
import restoring
import scanset
import zsbtool
from damagedset import Set

FIELDS = [name for name, _, _ in scanset.FIELDS]


def test_every_field_of_a_header_stands_under_its_name(tmp_path):
    path = scanset.write_file(
        tmp_path / "T0000007.ZSB", restoring.records([5, 6]), level=9, fileNumber=7,
        flags=0x3FA, poolBlocks=2**40, versionMajor=3, versionMinor=4, headerRevision=5,
        reserved=bytes(range(68)), closeTime=2**32 - 1, createTime=0)
    found = zsbtool.document("info", path, status=2)
    assert list(found["header"]) == FIELDS
    assert found["header"] == {
        "signature": "SCAN", "headerVersion": 2, "headerRevision": 5,
        "createTime": "1970-01-01T00:00:00Z", "closeTime": "2106-02-07T06:28:15Z",
        "scanID": "03020100-0504-0706-08-09-0a0b0c0d0e0f", "poolBlocks": 2**40,
        "fileEof": 660 + 2 * 4104, "dataBytes": 660 + 2 * 4104,
        "crc": scanset.read_file(path).header["crc"],
        "flags": ["last", "stopped", "state-change", "fourth", "write-error", "no-system-check",
                  "bypassed"],
        "fileNumber": 7, "compressionLevel": 9, "versionMajor": 3, "versionMinor": 4,
        "reserved": bytes(range(68)).hex(), "poolName": "POOL", "trailerSignature": "SCAN"}
    assert (found["file"], found["bytes"]) == ("T0000007.ZSB", 660 + 2 * 4104)
    assert [row["code"] for row in found["problems"]] == ["stopped", "state-change", "write-error"]


def test_a_file_is_told_to_people(tmp_path, golden):
    path = scanset.write_file(tmp_path / "C0000000.ZRB", [], compress=True, closeTime=0)
    shown = zsbtool.run("info", path)
    assert (shown.status, shown.err) == (2, "")
    golden("info-file.txt", shown.text)


def test_a_file_needs_no_name_of_its_set(tmp_path):
    path = scanset.write_file(tmp_path / "renamed.bin", restoring.records([1]))
    assert zsbtool.document("info", path)["file"] == "renamed.bin"


def test_a_file_without_a_whole_header_has_none(tmp_path):
    path = tmp_path / "T0000000.ZSB"
    path.write_bytes(b"SCAN" + bytes(100))
    found = zsbtool.document("info", path, status=2)
    assert (found["header"], found["bytes"]) == (None, 104)
    assert [row["code"] for row in found["problems"]] == ["short-header"]
    shown = zsbtool.run("info", path)
    assert "short-header" in shown.text


def test_a_file_that_is_no_scan_file_shows_its_bytes_and_is_faulty(tmp_path):
    path = tmp_path / "photo"
    path.write_bytes(b"\xff\xd8" + bytes(700))
    found = zsbtool.document("info", path, status=2)
    assert found["header"]["signature"] == "\ufffd\ufffd\0\0"
    assert [row["code"] for row in found["problems"]] == ["bad-signature"]
    assert "\\xff\\xd8\\x00\\x00" in zsbtool.run("info", path).text


def test_a_set_has_a_table_and_sums(tmp_path, golden):
    made = Set(suffix="ZSB")
    made.write(tmp_path)
    found = zsbtool.document("info", tmp_path)
    assert (found["files"], found["records"]) == (4, 24)
    assert found["bytes"] == sum(os.path.getsize(path) for path in tmp_path.iterdir())
    assert (found["pool"], found["poolBlocks"]) == ("POOL", 100)
    assert found["table"][3] == {
        "name": "T0000003.ZSB", "records": 6, "bytes": 660 + 6 * 4104,
        "createTime": "2023-11-14T22:13:20Z", "closeTime": "2023-11-14T22:14:20Z",
        "flags": ["last"]}
    assert len(found["table"]) == 4
    golden("info-set.txt", zsbtool.run("info", tmp_path).text)


def test_a_set_with_faults_in_its_headers_ends_with_2(tmp_path):
    made = Set()
    made.drop(1)
    made.set_flag(2, 0x008)
    made[0].damage.append(damagedset.cut_to(7))
    found = zsbtool.document("info", made.write(tmp_path), status=2)
    assert [(row["code"], row["file"]) for row in found["problems"]] == [
        ("gap", None), ("short-header", made.name(0)), ("stopped", made.name(2))]
    assert found["table"][0]["createTime"] is None


@pytest.mark.parametrize("path", ["missing", "empty"])
def test_what_is_not_there_ends_with_1(tmp_path, path):
    (tmp_path / "empty").mkdir()
    shown = zsbtool.run("info", tmp_path / path)
    assert (shown.status, shown.text) == (1, "")


def test_a_file_that_may_not_be_read_ends_with_1(somebody):
    path = scanset.write_file(somebody.folder / "T0000000.ZSB")
    path.chmod(0)
    shown = zsbtool.run("info", path, **somebody.how)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {path}: Permission denied\n"
