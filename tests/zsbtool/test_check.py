"""`zsbtool check`: every fault of a set is found, alone and in company, and nothing else."""

import os
import subprocess

import pytest

import damagedset
import restoring
import scanset
import zsbtool
from damagedset import FAULTS, Set


def check(folder, *options, status=None):
    """The document of a check, whose parts must not contradict each other."""
    shown = zsbtool.run("check", "--json", *options, folder)
    assert shown.err == ""
    found = zsbtool.checked("check", shown.out)
    assert found["restorable"] == (found["problems"] == [])
    assert shown.status == (0 if found["restorable"] else 2)
    assert status in (None, shown.status)
    for file in found["files"]:
        told = [row["code"] for row in found["problems"] if row["file"] == file["name"]]
        assert sorted(file["problems"]) == sorted(told)
        assert file["status"] == ("bad" if told else "good")
    assert found["records"] == sum(file["records"] for file in found["files"])
    return found


def findings(found):
    return sorted((row["code"], row["file"] or "") for row in found["problems"])


def wanted(fault, made):
    """What must be found of a fault in a set."""
    if fault.file is None:
        return fault.code, ""
    return fault.code, made[fault.file].name or made.name(fault.file)


CASES = [pytest.param(fault, compress, id=f"{fault.name}{' (compressed)' * compress}")
         for fault in FAULTS for compress in fault.kinds]


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
@pytest.mark.parametrize("suffix", ["ZSB", "ZRB"])
def test_a_sound_set_is_restorable(tmp_path, compress, suffix):
    made = Set(compress=compress, suffix=suffix)
    found = check(made.write(tmp_path), status=0)
    assert (found["problems"], found["warnings"]) == ([], [])
    assert (found["pool"], found["poolBlocks"], found["records"]) == ("POOL", 100, 24)
    assert found["scanId"] == "03020100-0504-0706-08-09-0a0b0c0d0e0f"
    compressed = ["compressed"] * compress
    assert found["files"] == [
        {"name": made.name(number), "number": number, "status": "good", "records": 6,
         "bytes": os.path.getsize(tmp_path / made.name(number)), "compressed": compress,
         "flags": compressed + ["last"] * (number == 3), "problems": []}
        for number in range(4)]


@pytest.mark.parametrize("fault, compress", CASES)
def test_a_fault_is_found_and_nothing_else(tmp_path, fault, compress):
    made = Set(compress=compress)
    fault.plant(made)
    found = check(made.write(tmp_path), status=2)
    assert findings(found) == [wanted(fault, made)]


@pytest.mark.parametrize("fault, compress", CASES)
def test_a_fault_is_found_in_company(tmp_path, fault, compress):
    """Beside a wrong CRC, a stopped save, a stray, and a number in a header that is not the name's."""
    made = Set(compress=compress)
    fault.plant(made)
    company = set()
    if 2 in [file.number for file in made.files]:
        made[2].fields["crc"] = 4711
        made.set_flag(2, 0x008)
        made[2].fields["fileNumber"] = 9
        company = {(code, made.name(2)) for code in ("crc", "stopped", "gap")}
    name = scanset.file_name(5, compress=compress, suffix="ZRB", set_number=42)
    made.files.append(damagedset.File(-2, [], {"flags": 0x002}, name=name))
    company.add(("stray-file", name))
    found = check(made.write(tmp_path), status=2)
    assert set(findings(found)) == company | {wanted(fault, made)}


def test_every_code_is_planted():
    schema = zsbtool.schema("check")["definitions"]
    known = {*schema["fileProblem"]["enum"], *schema["setProblem"]["enum"]}
    assert {fault.code for fault in FAULTS} | {"unreadable"} == known


@pytest.mark.parametrize("jobs", ["1", "2", "7"])
def test_the_result_does_not_depend_on_the_jobs(tmp_path, jobs):
    made = Set()
    for fault in FAULTS:
        if fault.code in ("crc", "block-twice", "block-range", "stopped", "mixed-scan"):
            fault.plant(made)
    made.write(tmp_path)
    assert zsbtool.run("check", "--json", "--jobs", jobs, tmp_path).text == \
        zsbtool.run("check", "--json", tmp_path).text


def test_records_are_those_that_are_whole(tmp_path):
    made = Set()
    made[0].damage.append(damagedset.cut_to(660 + 3 * 4104 + 4103))
    made[1].damage.append(damagedset.never_closed)
    made[2].damage.append(damagedset.cut_to(100))
    found = check(made.write(tmp_path), status=2)
    assert [file["records"] for file in found["files"]] == [3, 6, 0, 6]


def test_a_last_file_without_records_is_good(tmp_path):
    for compress in (False, True):
        made = Set(compress=compress)
        made[3].records = []
        assert check(made.write(tmp_path / str(compress)), status=0)["records"] == 18


def test_a_set_of_one_empty_file(tmp_path):
    scanset.write_file(tmp_path / "T0000000.ZSB")
    found = check(tmp_path, status=0)
    assert (found["records"], len(found["files"])) == (0, 1)


def test_a_file_of_no_bytes(tmp_path):
    (tmp_path / "T0000000.ZSB").write_bytes(b"")
    found = check(tmp_path, status=2)
    assert findings(found) == [("no-last-file", ""), ("short-header", "T0000000.ZSB")]
    assert [found[key] for key in ("scanId", "pool", "poolBlocks")] == [None, None, None]


def test_a_file_behind_the_last_one_has_no_other_problem(tmp_path):
    made = Set().write(tmp_path)
    (made / "T0000004.ZRB").write_bytes(b"too short for a header")
    assert findings(check(made, status=2)) == [("stray-file", "T0000004.ZRB")]


def test_two_saves_mixed_are_found(tmp_path):
    """A second, shorter save over a first one, and one that never came to its end."""
    first, second = Set(), Set()
    for file in second.files:
        file.fields["scanID"] = damagedset.OTHER_SCAN
    second.drop(2)
    second.drop(3)
    first.write(tmp_path / "over")
    second.set_flag(1, 0x002)
    second.write(tmp_path / "over")
    found = check(tmp_path / "over", status=2)
    assert findings(found) == [("stray-file", "T0000002.ZRB"), ("stray-file", "T0000003.ZRB")]
    assert found["records"] == 12
    first.write(tmp_path / "open")
    second[1].fields["flags"] = 0
    second.write(tmp_path / "open")
    found = check(tmp_path / "open", status=2)
    assert findings(found) == [("mixed-scan", "T0000002.ZRB"), ("mixed-scan", "T0000003.ZRB")]


def test_files_of_the_same_save_behind_an_early_last_file_count(tmp_path):
    made = Set()
    made.set_flag(0, 0x002)
    made.set_flag(1, 0x002)
    made[3].fields["flags"] = 0
    found = check(made.write(tmp_path), status=2)
    assert findings(found) == [("early-last-file", "T0000000.ZRB"),
                               ("early-last-file", "T0000001.ZRB"), ("no-last-file", "")]
    assert found["records"] == 24


@pytest.mark.parametrize("what", ["a folder", "a link to nowhere", "a pipe"])
def test_a_file_that_cannot_be_read_is_a_fault_of_the_set(tmp_path, what):
    made = Set()
    path = made.write(tmp_path) / made.name(1)
    path.unlink()
    if what == "a folder":
        path.mkdir()
    elif what == "a link to nowhere":
        path.symlink_to("nowhere")
    else:
        os.mkfifo(path)
    assert findings(check(tmp_path, status=2)) == [("unreadable", made.name(1))]


def test_a_file_without_rights_is_a_fault_of_the_set(somebody):
    made = Set()
    made.write(somebody.folder)
    (somebody.folder / made.name(1)).chmod(0)
    shown = zsbtool.run("check", "--json", somebody.folder, **somebody.how)
    found = zsbtool.checked("check", shown.out)
    assert (shown.status, findings(found)) == (2, [("unreadable", made.name(1))])
    assert found["problems"][0]["text"] == "Permission denied"


def test_a_folder_without_rights_ends_with_1(somebody):
    closed = Set().write(somebody.folder / "closed")
    closed.chmod(0)
    shown = zsbtool.run("check", closed, **somebody.how)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {closed}: Permission denied\n"
    Set().write(somebody.folder)
    shown = zsbtool.run("check", "-r", somebody.folder, **somebody.how)
    assert (shown.status, shown.err) == (2, f"zsbtool: {closed}: Permission denied\n")
    assert shown.text.endswith("1 set, 0 not restorable\n")
    closed.chmod(0o700)


def warnings(found):
    return [(row["code"], row["file"], row["text"]) for row in found["warnings"]]


def test_user_blocks_are_counted_as_a_warning(tmp_path):
    made = Set()
    damagedset.with_block(made, 1, b"")
    damagedset.with_block(made, 2, b"nono")
    found = check(made.write(tmp_path), status=0)
    assert warnings(found) == [("user-blocks", None, "2 blocks of no known type")]


@pytest.mark.parametrize("superblock, leaf", [(b"SPB5", b"BtqZ"), (b"SB64", b"LEAF")])
def test_leaves_of_the_other_format_are_a_warning(tmp_path, superblock, leaf):
    own = {b"BtqZ": b"LEAF", b"LEAF": b"BtqZ"}[leaf]
    made = Set()
    made[0].records[0] = (1, superblock.ljust(4096, b"\0"))
    for file in made.files:
        file.records = [(number, block if number == 1 else own + block[4:])
                        for number, block in file.records]
    assert check(made.write(tmp_path / "own"), status=0)["warnings"] == []
    damagedset.with_block(made, 1, leaf)
    found = check(made.write(tmp_path / "other"), status=0)
    assert warnings(found) == [
        ("other-format", None, "1 block of the other pool format's leaf type")]


def test_a_save_without_the_service_is_a_warning(tmp_path):
    made = Set()
    for file in made.files:
        file.fields["flags"] |= 0x200
    found = check(made.write(tmp_path), status=0)
    assert [row["code"] for row in found["warnings"]] == ["bypassed"]
    assert found["files"][0]["flags"] == ["bypassed"]


def test_sets_that_lie_together_are_told_apart(tmp_path):
    """A restore takes .ZRB before .ZSB and T before C, by which file 0 is there."""
    for compress, suffix in ((False, "ZSB"), (True, "ZSB"), (False, "ZRB"), (True, "ZRB")):
        made = Set(compress=compress, suffix=suffix)
        made.write(tmp_path)
    def taken(*options):
        shown = zsbtool.run("check", "--json", *options, tmp_path)
        found = zsbtool.checked("check", shown.out)
        assert {row["code"] for row in found["warnings"]} == {"both-letters", "both-endings"}
        name = found["files"][0]["name"]
        assert shown.err == (f"zsbtool: {tmp_path}: several sets lie there; taking that of "
                             f"{name}\n")
        return name
    assert taken() == "T0000000.ZRB"
    assert taken("--prefix", "C") == "C0000000.ZRB"
    assert taken("--ending", "zsb") == "T0000000.ZSB"
    assert taken("--prefix", "c", "--ending", "ZSB") == "C0000000.ZSB"
    (tmp_path / "T0000000.ZRB").unlink()
    assert taken() == "C0000000.ZRB"
    (tmp_path / "C0000000.ZRB").unlink()
    assert taken() == "T0000000.ZSB"
    assert zsbtool.run("check", "--quiet", tmp_path).err == ""


def test_a_file_names_its_set(tmp_path):
    Set(compress=True, suffix="ZSB").write(tmp_path)
    Set(suffix="ZRB").write(tmp_path)
    shown = zsbtool.run("check", "--json", tmp_path / "C0000002.ZSB")
    found = zsbtool.checked("check", shown.out)
    assert found["set"] == str(tmp_path / "C0000000.ZSB")
    here = zsbtool.run("check", "--json", "C0000002.ZSB", cwd=tmp_path)
    assert zsbtool.checked("check", here.out)["files"] == found["files"]


def test_people_get_the_verdict_as_the_last_line(tmp_path, golden):
    made = Set()
    shown = zsbtool.run("check", made.write(tmp_path / "sound"))
    assert (shown.status, shown.err) == (0, "")
    golden("check-sound.txt", shown.text)
    for fault in FAULTS:
        if fault.name in ("cut", "another scan", "a block far behind the end", "no first file"):
            fault.plant(made)
    damagedset.with_block(made, 2, b"")
    shown = zsbtool.run("check", made.write(tmp_path / "faulty"))
    assert (shown.status, shown.err) == (2, "")
    golden("check-faulty.txt", shown.text)


def test_the_document_is_what_it_always_was(tmp_path, golden):
    made = Set(compress=True, suffix="ZSB")
    for fault in FAULTS:
        if fault.name in ("broken stream", "no last file", "a file of another set number"):
            fault.plant(made)
    shown = zsbtool.run("check", "--json", ".", cwd=made.write(tmp_path))
    assert shown.status == 2
    golden("check.json", shown.text)


def test_a_name_cannot_steer_the_terminal(tmp_path):
    made = Set()
    for file in made.files:
        file.fields["poolName"] = "P\x1b[2J\n".encode("utf-16-le")
    shown = zsbtool.run("check", made.write(tmp_path))
    assert shown.text.startswith("pool P\\x1b[2J\\x0a, ")
    assert check(tmp_path)["pool"] == "P\x1b[2J\n"


def test_a_name_of_another_coding_has_its_wrong_bytes_replaced(tmp_path):
    made = Set()
    for file in made.files:
        file.fields["poolName"] = "Käse\xff".encode("utf-16-le")
    assert check(made.write(tmp_path))["pool"] == "K\ufffdse\ufffd"
    for file in made.files:
        file.fields["poolName"] = b"".join(bytes((c, 0)) for c in "Käse".encode())
    assert check(made.write(tmp_path))["pool"] == "Käse"


@pytest.mark.parametrize("text, error", [
    ("missing", "No such file or directory"),
    ("empty", "there is no such set of scan files"),
    ("file.txt", "is not named as a scan file"),
    ("T0000000.ZSB", "No such file or directory"),
])
def test_what_is_no_set_ends_with_1(tmp_path, text, error):
    (tmp_path / "empty").mkdir()
    (tmp_path / "file.txt").write_bytes(b"")
    shown = zsbtool.run("check", text, cwd=tmp_path)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {text}: {error}\n"


def test_a_name_with_bytes_of_any_kind_is_told_as_it_is(tmp_path):
    folder = os.fsencode(tmp_path) + b"/a\xff\n\xc3\xa4"
    os.mkdir(folder)
    for name in os.listdir(Set().write(tmp_path / "made")):
        os.rename(tmp_path / "made" / name, folder + b"/" + name.encode())
    done = subprocess.run([zsbtool.program(), "check", "--json", folder], capture_output=True,
                          check=False)
    assert done.returncode == 0
    assert zsbtool.checked("check", done.stdout)["set"].endswith("/a\ufffd\nä/T0000000.ZRB")
    done = subprocess.run([zsbtool.program(), "check", folder + b"x"], capture_output=True,
                          check=False)
    assert done.returncode == 1
    assert done.stderr.endswith(b"/a\\xff\\x0a\xc3\xa4x: No such file or directory\n")


class TestSeveral:
    """Several sets: one line each, a sum, the worst status."""

    @pytest.fixture
    def tree(self, tmp_path):
        Set().write(tmp_path / "b" / "deep")
        Set(compress=True).write(tmp_path / "b" / "deep")
        made = Set(suffix="ZSB")
        made[1].fields["crc"] = 1
        made.drop(2)
        made.write(tmp_path / "a")
        (tmp_path / "c").mkdir()
        (tmp_path / "link").symlink_to("b")
        return tmp_path

    def test_every_set_below_a_folder(self, tree):
        shown = zsbtool.run("check", "--recursive", ".", cwd=tree)
        assert (shown.status, shown.err) == (2, "")
        assert shown.text == ("./a/T0000000.ZSB: not restorable: 2 problems\n"
                              "./b/deep/T0000000.ZRB: restorable\n"
                              "./b/deep/C0000000.ZRB: restorable\n"
                              "3 sets, 1 not restorable\n")

    def test_as_a_document(self, tree):
        shown = zsbtool.run("check", "-r", "--json", tree)
        found = zsbtool.checked("check", shown.out)
        assert (shown.status, shown.err) == (2, "")
        assert [(one["set"], one["restorable"]) for one in found["sets"]] == [
            (str(tree / "a" / "T0000000.ZSB"), False),
            (str(tree / "b/deep" / "T0000000.ZRB"), True),
            (str(tree / "b/deep" / "C0000000.ZRB"), True)]
        assert found["restorable"] is False

    def test_the_choice_goes_for_each(self, tree):
        shown = zsbtool.run("check", "-r", "--prefix", "C", tree)
        assert (shown.status, shown.text.splitlines()[-1]) == (0, "1 set, 0 not restorable")

    def test_sets_that_are_named(self, tree):
        shown = zsbtool.run("check", tree / "a", tree / "b/deep/C0000001.ZRB")
        assert shown.status == 2
        assert shown.text.splitlines()[-1] == "2 sets, 1 not restorable"

    def test_one_that_is_not_there_ends_with_1(self, tree):
        shown = zsbtool.run("check", tree / "a", tree / "missing")
        assert (shown.status, shown.text) == (1, "")

    def test_nothing_below(self, tree):
        for folder in (tree / "c", tree / "missing"):
            shown = zsbtool.run("check", "-r", folder)
            assert (shown.status, shown.text) == (1, "")


def test_records_of_restores_are_not_needed(tmp_path):
    """A set of one file whose records do not begin at the pool's start."""
    scanset.write_set(tmp_path, restoring.records([70, 80, 90]))
    assert check(tmp_path, status=0)["records"] == 3
