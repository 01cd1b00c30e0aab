"""`zsbtool map`: where the block types of a set lie in the pool."""

import os
import re
import xml.etree.ElementTree as tree

import pexpect
import pytest

import damagedset
import poolTypes
import restoring
import scanset
import zsbtool
from damagedset import Set

SVG = "{http://www.w3.org/2000/svg}"


def drawn(path):
    """What the rectangles of a map tell, in their order, without those of the legend."""
    return [rect.find(f"{SVG}title").text for rect in tree.parse(path).iter(f"{SVG}rect")
            if rect.find(f"{SVG}title") is not None]


def legend(path):
    return [text.text for text in tree.parse(path).iter(f"{SVG}text")]


def of_every_type():
    """One block of each type."""
    magics = [magic for _, magic in poolTypes.TYPES if magic is not None]
    blocks = [*magics, b"elseoVUk", b"else"]
    return [(number, start.ljust(4096, b"\0")) for number, start in enumerate(blocks)]


def test_people_get_a_picture(tmp_path, golden):
    made = Set()
    damagedset.with_block(made, 2, b"")
    shown = zsbtool.run("map", made.write(tmp_path))
    assert (shown.status, shown.err) == (0, "")
    golden("map.txt", shown.text)


def test_each_type_has_a_letter_of_its_own(tmp_path):
    records = of_every_type()
    scanset.write_set(tmp_path, records, poolBlocks=len(records))
    picture = zsbtool.run("map", tmp_path).text.split("\n\n")[0]
    letters = re.sub(r"[\d\s]", "", picture)
    assert len(letters) == len(set(letters)) == len(poolTypes.NAMES)


def test_a_cell_of_a_large_pool_has_its_most_frequent_type(tmp_path):
    records = restoring.records([0, 1]) + restoring.records([2, 3, 4], b"PASM") + \
        restoring.records([1500], b"SPB5")
    scanset.write_set(tmp_path, records, poolBlocks=1024 * 5)
    shown = zsbtool.run("map", tmp_path).text
    letters = re.sub(r"[\d\s]", "", shown.split("\n\n")[0])
    keys = dict(re.findall(r"^(.)  (.*): \d+ blocks?$", shown, re.MULTILINE))
    assert len(letters) == 1024
    assert (keys[letters[0]], keys[letters[300]]) == ("MSAP", "SBH Z32")
    assert set(letters[1:300] + letters[301:]) == {"."}
    assert "5 blocks each" in shown


def test_a_terminal_has_colours_unless_they_are_not_wanted(tmp_path):
    Set().write(tmp_path)
    command = f"{zsbtool.program()} map {tmp_path}"
    for env, painted in (({"TERM": "xterm-256color", "NO_COLOR": ""}, True),
                         ({"TERM": "xterm-256color", "NO_COLOR": "1"}, False)):
        shown = pexpect.run(command, env={**os.environ, **env}).decode()
        assert ("\x1b[38;5;" in shown) == painted
        assert "BT leaf Z32" in shown


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_the_drawing_shows_what_lies_where(tmp_path, compress):
    made = Set(compress=compress)
    damagedset.with_block(made, 2, b"PASM")
    shown = zsbtool.run("map", made.write(tmp_path / "set"), "-o", tmp_path / "map.svg")
    assert (shown.status, shown.text, shown.err) == (0, "", "")
    assert drawn(tmp_path / "map.svg") == [
        "blocks 0 to 0: nothing", "blocks 1 to 1: SBH Z32", "blocks 2 to 17: BT leaf Z32",
        "blocks 18 to 18: MSAP", "blocks 19 to 24: BT leaf Z32", "blocks 25 to 99: nothing"]
    assert legend(tmp_path / "map.svg") == [
        "A cell is 1 block of the pool, in the colour of the most frequent type.",
        "BT leaf Z32: 22", "MSAP: 1", "SBH Z32: 1"]


def test_every_type_has_a_colour_of_its_own(tmp_path):
    scanset.write_set(tmp_path, of_every_type(), poolBlocks=100)
    assert zsbtool.run("map", tmp_path, "-o", tmp_path / "map.svg").status == 0
    colours = re.findall(r'fill="(#[0-9a-f]{6})"><title>', (tmp_path / "map.svg").read_text())
    assert len(colours) == len(set(colours)) == len(poolTypes.NAMES)
    parts = [[int(colour[at:at + 2], 16) for at in (1, 3, 5)] for colour in colours]
    assert {round((max(one) + min(one)) / 510, 2) for one in parts} <= {0.4, 0.53, 0.6, 0.66}


def test_the_legend_stands_in_rows_below_the_cells(tmp_path):
    scanset.write_set(tmp_path, of_every_type(), poolBlocks=1_000_000)
    assert zsbtool.run("map", tmp_path, "-o", tmp_path / "map.svg").status == 0
    drawing = tree.parse(tmp_path / "map.svg").getroot()
    width, height = map(int, drawing.get("viewBox").split()[2:])
    rects = [rect for rect in drawing.iter(f"{SVG}rect") if rect.get("class") != "map-ground"]
    cells = [rect for rect in rects if rect.find(f"{SVG}title") is not None]
    below = max(int(rect.get("y")) + int(rect.get("height")) for rect in cells)
    places = [(int(rect.get("y")), int(rect.get("x"))) for rect in rects if rect not in cells]
    rows = sorted({y for y, _ in places})
    assert places == [(y, x) for y in rows for x in sorted({x for _, x in places})][:len(places)]
    assert len({x for _, x in places}) == 4 and len(places) == len(of_every_type())
    captions = [int(text.get("y")) for text in drawing.iter(f"{SVG}text")]
    assert captions[0] == below + 20
    assert below < rows[0] < below + 60 and rows[-1] + 12 < height and places[3][1] + 12 < width
    assert {after - before for before, after in zip(rows, rows[1:])} == {20}


def test_the_drawing_does_not_depend_on_the_jobs(tmp_path):
    Set(compress=True).write(tmp_path / "set")
    for jobs in (1, 5):
        assert zsbtool.run("map", "--jobs", jobs, tmp_path / "set", "-o",
                           tmp_path / f"{jobs}.svg").status == 0
    assert (tmp_path / "1.svg").read_bytes() == (tmp_path / "5.svg").read_bytes()


def test_files_that_cannot_be_read_to_their_end_are_named(tmp_path):
    made = Set()
    made[1].damage.append(damagedset.cut_to(100))
    shown = zsbtool.run("map", made.write(tmp_path / "set"), "-o", tmp_path / "map.svg")
    assert (shown.status, shown.err) == (2, "zsbtool: T0000001.ZRB: it has no header of a scan file\n")
    assert "blocks 7 to 12: nothing" in drawn(tmp_path / "map.svg")


def test_a_drawing_that_cannot_be_written_ends_with_1(tmp_path):
    Set().write(tmp_path / "set")
    for output in (tmp_path / "missing" / "map.svg", "/dev/full", tmp_path):
        shown = zsbtool.run("map", tmp_path / "set", "-o", output)
        assert (shown.status, shown.text) == (1, "")
    assert [path.name for path in tmp_path.iterdir()] == ["set"]


@zsbtool.needs_no_file_of_the_sanitizers()
def test_without_room_nothing_is_left(tmp_path):
    Set().write(tmp_path / "set")
    shown = zsbtool.run("map", tmp_path / "set", "-o", tmp_path / "map.svg",
                        before=("/bin/sh", "-c", 'ulimit -f 0; exec "$@"', "sh"))
    assert (shown.status, shown.err) == (1, f"zsbtool: {tmp_path}/map.svg: File too large\n")
    assert [path.name for path in tmp_path.iterdir()] == ["set"]
