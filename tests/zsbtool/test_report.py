"""`zsbtool report`: one page of what a set is, holds and lacks, looked at in a browser."""

import re

import pytest

import browser
import damagedset
import restoring
import saving
import scanset
import zsbtool
from damagedset import Set


def report(folder, *arguments, status=0):
    """Makes the report of a set beside it, and returns its path."""
    page = folder.parent / "report.html"
    shown = zsbtool.run("report", folder, *arguments, "-o", page)
    assert (shown.status, shown.err) == (status, "")
    return page


def read(page):
    parser = browser.Seen(page.read_text(encoding="utf-8"), [], [], [])
    return parser.page


def test_a_browser_shows_it_without_asking_for_anything(tmp_path):
    made = Set(compress=True)
    made.set_flag(2, 0x008)
    damagedset.with_block(made, 3, b"")
    seen = browser.look_at(report(made.write(tmp_path / "set"), status=2))
    assert seen.page.title == "Scan set of pool POOL: not restorable: 1 problem"
    assert "\nnot restorable: 1 problem\n" in seen.page.text
    rows = {name: len(rows) for name, rows in seen.page.tables.items()}
    assert rows == {"facts": 9, "findings": 2, "types": 3, "files": 4}
    assert seen.dom.count("<rect") == 1 + 5 + 3  # ground, stretches, legend
    assert (seen.console, seen.asked, seen.elsewhere) == ([], ["/page.html"], [])


@pytest.mark.parametrize("markup, what", [
    ('<script>console.log("planted")</script>', "console"),
    ('<img src="/planted.png">', "asked"),
    ('<img src="http://127.0.0.2:9/planted.png">', "elsewhere")])
def test_the_look_would_see_a_page_that_is_not_alone(tmp_path, markup, what):
    page = report(Set().write(tmp_path / "set"))
    page.write_text(page.read_text().replace("</body>", markup + "</body>"))
    assert "planted" in str(getattr(browser.look_at(page), what))


def test_it_needs_no_script_and_nothing_from_elsewhere(tmp_path):
    text = report(Set().write(tmp_path / "set")).read_text()
    assert "<script" not in text and "@import" not in text and "url(" not in text
    assert set(re.findall(r'(?:src|href)="([^"]*)"', text)) == {"data:,"}
    assert set(re.findall(r"https?://[^\"<> ]*", text)) == {"http://www.w3.org/2000/svg"}
    assert "prefers-color-scheme: dark" in text


def test_a_picture_of_it_can_be_drawn(tmp_path):
    browser.picture_of(report(Set().write(tmp_path / "set")), tmp_path / "page.png", width=600)
    picture = (tmp_path / "page.png").read_bytes()
    assert picture.startswith(b"\x89PNG") and int.from_bytes(picture[16:20], "big") == 600


def test_it_tells_what_was_saved_and_what_check_says(tmp_path):
    made = Set()
    made.drop(1)
    made[0].fields["crc"] = 0xABC
    page = read(report(made.write(tmp_path / "set"), status=2))
    facts = dict(page.tables["facts"])
    assert facts["pool"] == "POOL"
    assert facts["size of the pool"] == "100 blocks"
    assert facts["saved"] == "2023-11-14T22:13:20Z to 2023-11-14T22:14:20Z"
    assert facts["scan"] == "03020100-0504-0706-08-09-0a0b0c0d0e0f"
    assert (facts["form"], facts["files"], facts["records"]) == ("raw", "3", "18")
    checked = zsbtool.checked("check", zsbtool.run("check", "--json", tmp_path / "set").out)
    assert [row[1:] for row in page.tables["findings"]] == [
        [row["code"], row["file"] or "", row["text"]] for row in checked["problems"]]
    assert page.tables["types"] == [["BT leaf Z32", "LEAF", "17"], ["SBH Z32", "SPB5", "1"]]
    assert page.tables["files"][0] == [made.name(0), "6", "24.7 KiB", "2023-11-14T22:13:20Z",
                                       "00000abc", "", "crc"]


def test_strays_and_files_without_a_header_are_among_the_files(tmp_path):
    made = Set()
    made[1].damage.append(damagedset.cut_to(100))
    made.files.append(damagedset.File(4, [], {"flags": 2, "fileNumber": 4,
                                              "scanID": damagedset.OTHER_SCAN}))
    rows = read(report(made.write(tmp_path / "set"), status=2)).tables["files"]
    assert rows[1] == [made.name(1), "0", "100 B", "", "", "", "short-header"]
    assert (rows[4][0], rows[4][1], rows[4][-1]) == (made.name(4), "0", "stray-file")


def test_a_sound_set_has_no_findings(tmp_path):
    page = read(report(Set().write(tmp_path / "set")))
    assert page.title == "Scan set of pool POOL: restorable"
    assert "findings" not in page.tables and "None." in page.text


@pytest.mark.parametrize("name", ["<script>alert(1)</script>", "a&amp;b\"'", "\x1b[2J", "\xff\xfe"])
def test_a_name_is_text_whatever_it_is(tmp_path, name):
    folder = tmp_path / "set"
    folder.mkdir()
    scanset.write_set(folder, restoring.records([1]), poolBlocks=4,
                      poolName=b"".join(bytes((code, 0)) for code in name.encode("latin-1")))
    page = report(folder)
    text = page.read_text(encoding="utf-8")
    assert "<script" not in text and "\x1b" not in text
    shown = dict(read(page).tables["facts"])["pool"]
    assert shown == "".join(char if " " <= char < "\x7f" else f"\\x{ord(char):02x}" for char in name)


# What stands under "Unreadable blocks".
def unreadable(page):
    return page.text.split("Unreadable blocks\n")[1].split("Where the block types lie\n")[0].strip()


def test_without_a_log_it_says_so(tmp_path):
    assert unreadable(read(report(Set().write(tmp_path / "set")))) == \
        "No log was given, so nothing is known of read errors."


def saved(pool, folder, *options):
    folder.mkdir()
    pool(size="16M").copy_to(folder / "pool.img")
    assert saving.save("pool.img", folder, *options, preload=True).status == 0
    return folder


@pytest.mark.parametrize("options", [(), ("-c",)], ids=["raw", "compressed"])
def test_the_run_that_saved_the_files_is_found_in_the_log(pool, tmp_path, options):
    folder = saved(pool, tmp_path / "set", *options)
    log = folder / "ostrelscan.log"
    told = f"0 unreadable blocks in run 1 of {log}."
    assert unreadable(read(report(folder, log))) == told
    # A set that is to be restored has another ending.
    for path in folder.glob("*.ZSB"):
        path.rename(path.with_suffix(".ZRB"))
    assert unreadable(read(report(folder, log))) == told
    # A later run, of other files.
    other = saved(pool, tmp_path / "other", "-a", *options)
    log.write_text(log.read_text() + (other / "ostrelscan.log").read_text())
    assert unreadable(read(report(folder, log))) == told


def test_a_log_of_other_files_tells_nothing(pool, tmp_path):
    log = saved(pool, tmp_path / "saved") / "ostrelscan.log"
    assert unreadable(read(report(Set().write(tmp_path / "set"), log))) == \
        f"No run of {log} saved these files, so nothing is known of read errors."


def test_blocks_that_the_save_could_not_read_are_named(fault_loop, pool, tmp_path):
    folder = tmp_path / "set"
    folder.mkdir()
    pool(size="16M").copy_to(tmp_path / "pool.img")
    with fault_loop(tmp_path / "pool.img", tmp_path / "mnt", "badread=5,70-72,4000") as (device, _):
        assert saving.save(device, folder, timeout=300).status == 0
    page = read(report(folder, folder / "ostrelscan.log"))
    assert unreadable(page).splitlines() == [
        f"5 unreadable blocks in run 1 of {folder}/ostrelscan.log.", "5, 70 to 72, 4000"]


def test_a_log_that_cannot_be_read_ends_with_1(tmp_path):
    Set().write(tmp_path / "set")
    shown = zsbtool.run("report", tmp_path / "set", tmp_path / "missing.log", "-o",
                        tmp_path / "report.html")
    assert (shown.status, shown.text) == (1, "")
    assert [path.name for path in tmp_path.iterdir()] == ["set"]


@zsbtool.needs_no_file_of_the_sanitizers()
def test_without_room_nothing_is_left(tmp_path):
    Set().write(tmp_path / "set")
    shown = zsbtool.run("report", tmp_path / "set", "-o", tmp_path / "report.html",
                        before=("/bin/sh", "-c", 'ulimit -f 0; exec "$@"', "sh"))
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {tmp_path}/report.html: File too large\n"
    assert [path.name for path in tmp_path.iterdir()] == ["set"]
