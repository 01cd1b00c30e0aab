"""What every command that takes a set does where there is none, or it cannot be had."""

import pytest

import restoring
import scanset
import zsbtool
from damagedset import Set

# The command, what it takes besides the set, and its status for a set of one file without records.
COMMANDS = {
    "cat": (["{set}", "1"], 2),
    "check": (["{set}"], 0),
    "compare": (["{set}", "{beside}/pool.img"], 0),
    "find": (["{set}", "1"], 2),
    "image": (["{set}", "-o", "{beside}/made.img"], 0),
    "info": (["{set}"], 0),
    "list": (["{set}"], 0),
    "map": (["{set}"], 0),
    "report": (["{set}", "-o", "{beside}/made.html"], 0),
}


@pytest.fixture(params=sorted(COMMANDS))
def typed(request, tmp_path):
    """Makes the command's words for a set."""
    (tmp_path / "beside").mkdir()
    (tmp_path / "beside" / "pool.img").write_bytes(restoring.EMPTY * 4)
    words, empty = COMMANDS[request.param]

    def words_for(folder, beside=tmp_path / "beside"):
        return [request.param, *(word.format(set=folder, beside=beside) for word in words)]
    words_for.of_an_empty_set = empty
    return words_for


def test_a_folder_that_is_not_there(tmp_path, typed):
    shown = zsbtool.run(*typed(tmp_path / "missing"))
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {tmp_path}/missing: No such file or directory\n"


def test_a_folder_without_a_set(tmp_path, typed):
    (tmp_path / "empty").mkdir()
    shown = zsbtool.run(*typed(tmp_path / "empty"))
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {tmp_path}/empty: there is no such set of scan files\n"


def test_a_folder_that_may_not_be_read(typed, somebody):
    folder = Set().write(somebody.folder / "set")
    (somebody.folder / "pool.img").write_bytes(restoring.EMPTY)
    folder.chmod(0)
    try:
        shown = zsbtool.run(*typed(folder, somebody.folder), **somebody.how)
    finally:
        folder.chmod(0o755)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {folder}: Permission denied\n"


def test_a_set_of_one_file_without_records(tmp_path, typed):
    (tmp_path / "set").mkdir()
    scanset.write_file(tmp_path / "set" / "T0000000.ZSB", poolBlocks=4)
    assert zsbtool.run(*typed(tmp_path / "set")).status == typed.of_an_empty_set


def test_a_set_of_one_file_of_no_bytes(tmp_path, typed):
    (tmp_path / "set").mkdir()
    (tmp_path / "set" / "T0000000.ZSB").write_bytes(b"")
    assert zsbtool.run(*typed(tmp_path / "set")).status == 2


def test_names_that_are_not_ascii(tmp_path, typed):
    folder = Set().write(tmp_path / "Sicherung für Zoë" / "プール")
    made = zsbtool.run(*typed(folder))
    again = zsbtool.run(*typed(folder), env={"LC_ALL": "C"})
    assert made.status in (0, 2) and (made.out, made.err) == (again.out, again.err)


def test_a_folder_whose_name_would_steer_a_terminal(tmp_path, typed):
    shown = zsbtool.run(*typed(tmp_path / "\x1b[2Jmissing"))
    assert shown.status == 1
    assert "\x1b" not in shown.err and "\\x1b[2Jmissing" in shown.err
