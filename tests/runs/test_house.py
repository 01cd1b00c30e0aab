"""Every file of the product has its room, and every include is held against the table of rooms."""

import pathlib
import re
import subprocess

import pytest

import house

TREE = house.read_tree()


def planted(name, line):
    """What is found when a file of the tree, or a new one, has one line more."""
    standing = house.violations(TREE)
    tree = {**TREE, name: TREE.get(name, "") + line + "\n"}
    return [found for found in house.violations(tree) if found not in standing]


def test_the_house_stands_as_its_table_says():
    assert len(TREE) > 100
    assert house.violations(TREE) == []


@pytest.mark.parametrize("name, line, found", [
    # a base helper that knows the management channel
    ("util/common/guid.cpp", '#include "util/common/tXML.h"',
     "util/common/guid.cpp (base) includes util/common/tXML.h (pool control)"),
    # one wing in the other
    ("util/common/scanFileFormat.h", '#include "util/common/tXML.h"',
     "util/common/scanFileFormat.h (scan file format) includes util/common/tXML.h (pool control)"),
    ("util/common/poolLock.cpp", '#include "util/common/zsbFile.h"',
     "util/common/poolLock.cpp (pool control) includes util/common/zsbFile.h (scan files)"),
    # the writer and the reader, which know nothing of each other
    ("util/common/scanFileWriter.cpp", '#include "util/common/scanFileReader.h"',
     "util/common/scanFileWriter.cpp (scan file writer) includes "
     "util/common/scanFileReader.h (scan file reader)"),
    ("util/common/scanFileReader.h", '#include "util/common/scanFileWriter.h"',
     "util/common/scanFileReader.h (scan file reader) includes "
     "util/common/scanFileWriter.h (scan file writer)"),
    # the companion and the wing that it does without
    ("util/zsbtool/table.cpp", '#include "util/common/pvKey.h"',
     "util/zsbtool/table.cpp (companion) includes util/common/pvKey.h (pool control)"),
    ("util/ostrelscan/run.cpp", '#include "util/zsbtool/output.h"',
     "util/ostrelscan/run.cpp (command line) includes util/zsbtool/output.h (companion)"),
    # upwards, from a source and from a header
    ("util/ostrelscan/dumpPass.cpp", '#include "util/ostrelscan/scanUI.h"',
     "util/ostrelscan/dumpPass.cpp (engine) includes util/ostrelscan/scanUI.h (screen)"),
    ("util/ostrelscan/progress.h", '#include "util/ostrelscan/programName.h"',
     "util/ostrelscan/progress.h (screen) includes util/ostrelscan/programName.h (command line)"),
    ("util/common/log.h", '#include "util/ostrelscan/programName.h"',
     "util/common/log.h (base) includes util/ostrelscan/programName.h (command line)"),
    # the product and the stand-in share nothing
    ("sim/wire.cpp", '#include "util/common/number.h"',
     "sim/wire.cpp (wire) includes util/common/number.h (base)"),
    ("util/common/heb.cpp", '#include "sim/busRecords.h"',
     "util/common/heb.cpp (pool control) includes sim/busRecords.h (bus library)"),
    ("sim/busClient.cpp", '#include "sim/service.h"',
     "sim/busClient.cpp (bus library) includes sim/service.h (service)"),
    # other ways to write it
    ("util/common/guid.cpp", "  #  include <util/common/tXML.h>",
     "util/common/guid.cpp (base) includes util/common/tXML.h (pool control)"),
    ("util/common/guid.cpp", '#include "tXML.h"',
     "util/common/guid.cpp includes tXML.h, which is no file of the house"),
    ("util/common/guid.cpp", "#include HIDDEN_HEADER",
     "util/common/guid.cpp includes HIDDEN_HEADER, which is no file of the house"),
    ("util/common/guid.cpp", '#include "tests/support/fakeBus.h"',
     "util/common/guid.cpp includes tests/support/fakeBus.h, which is no file of the house"),
    # a file that nobody entered in the table
    ("util/common/newcomer.cpp", "", "util/common/newcomer.cpp has no room"),
    ("util/common/newcomer.h", "", "util/common/newcomer.h has no room"),
    ("util/ostrelscan/newcomer.inc", "", "util/ostrelscan/newcomer.inc has no room"),
    ("sim/newcomer.cpp", "", "sim/newcomer.cpp has no room"),
    # a library in other hands
    ("util/ostrelscan/scanUI.cpp", "#include <ncurses.h>",
     "util/ostrelscan/scanUI.cpp touches curses"),
    ("util/ostrelscan/poolDevice.h", "#include <zlib.h>",
     "util/ostrelscan/poolDevice.h touches zlib"),
    ("util/common/log.cpp", "#include <dlfcn.h>", "util/common/log.cpp touches the bus library"),
    ("util/common/poolLock.cpp", "    userHebUnRegisterConsumer(handle, nullptr);",
     "util/common/poolLock.cpp touches the bus library"),
    ("util/zsbtool/main.cpp", "#include <CLI/App.hpp>",
     "util/zsbtool/main.cpp touches the option parser"),
    ("util/zsbtool/text.h", "#include <nlohmann/json.hpp>",
     "util/zsbtool/text.h touches the JSON library"),
    ("sim/service.cpp", "#include <fuse_lowlevel.h>", "sim/service.cpp touches libfuse"),
])
def test_a_planted_line_is_found(name, line, found):
    assert [what for what in planted(name, line) if not what.startswith("a circle")] == [found]


@pytest.mark.parametrize("name, line, found", [
    ("util/common/errors.cpp", '#include "util/common/log.h"',
     "a circle: util/common/errors, util/common/log"),
    ("util/common/tXMLReply.cpp", '#include "util/common/pvKey.h"',
     "a circle: util/common/ostrelVFS, util/common/pvKey, util/common/tXML"),
    ("sim/jobs.cpp", '#include "sim/requests.h"', "a circle: sim/jobs, sim/requests"),
])
def test_a_circle_that_runs_through_a_source_file_is_found(name, line, found):
    assert planted(name, line) == [found]


def test_a_row_whose_file_has_gone_is_found():
    without = {name: text for name, text in TREE.items() if not name.startswith("sim/trace.")}
    assert "sim/trace of the room service is not there" in house.violations(without)


def test_every_file_has_one_home_and_every_room_stands_on_those_before_it():
    stems = [f"{room.folder}/{stem}" for room in house.ROOMS for stem in room.lines.split()]
    assert len(stems) == len(set(stems))
    before = set()
    for room in house.ROOMS:
        assert set(room.may_include) <= before, room.name
        before |= room.names()


def test_the_owners_of_the_libraries_are_there():
    known = {name for room in house.ROOMS for name in (*room.names(), *room.parts())}
    assert [library.name for library in house.LIBRARIES if not set(library.owners) <= known] == []


@pytest.mark.parametrize("library, floor", [
    ("ostrel_base", "0"),
    ("ostrel_scan_files", "1 left"),
    ("ostrel_pool_control", "1 right"),
])
def test_a_wing_is_a_library_of_its_own(library, floor):
    text = (house.ROOT / "util/common/CMakeLists.txt").read_text(encoding="utf-8")
    listed = re.search(rf"add_library\({library} OBJECT\s([^)]*)\)", text)[1].split()
    stems = [stem for room in house.ROOMS if room.floor == floor
             for part in room.parts().values() for stem in part]
    assert listed == sorted(pathlib.Path(name).name for name in TREE
                            if name.endswith(".cpp") and name.removesuffix(".cpp") in stems)


@pytest.mark.parametrize("program, own, other", [
    ("scan_files_alone", "ZSBFile::", "PoolLock::"),
    ("pool_control_alone", "PoolLock::", "ZSBFile::"),
    ("../bin/zsbtool", "Ostrel::", "PoolLock::"),
])
def test_a_wing_links_without_the_other(build, program, own, other):
    listed = subprocess.run(["nm", "--demangle", "--defined-only", build / "tests" / program],
                            capture_output=True, text=True, check=True).stdout
    assert own in listed
    assert other not in listed


def test_contributing_shows_the_table():
    text = (house.ROOT / "CONTRIBUTING.md").read_text(encoding="utf-8")
    assert house.shown_table(text) == house.as_table(), "python3 tests/support/house.py writes it"


def test_the_support_that_stands_apart_shares_no_code_with_the_tool():
    names = ("mkpool", "poolPlan", "blockContent", "faultdisk", "faultState", "diskPace", "unsyncedWrites",
             "sizepreload")
    for name in names:
        for path in (house.ROOT / "tests/support").glob(f"{name}.*"):
            assert not re.search(r'#\s*include ["<]util/', path.read_text(encoding="utf-8")), name
