"""The house rules of the tree, and the promises of its documents."""

import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = sorted([*ROOT.glob("*.md"), *ROOT.glob("docs/*.md")])

BASE = ("errors errorTable qdsNitErrorTable log crc number unicode clock hexDump guid lbpMisc "
        "fileDescriptor positionedStream blockTypes stableSequence").split()
SCAN_FILES = "scanFileFormat zlibStreams zsbFile scanFileList".split()
POOL_CONTROL = "tXML ostrelVFS serviceFiles pvKey heb hebFamilies poolLock".split()
ENGINE = "blockSelector scanOptions poolDevice scanEngine".split()
SCREEN = "screenInterface screenTerminal screenLayout progress scanUI".split()
COMMAND_LINE = "programName commandLine".split()

# What the headers of a room may be included by: each room and those above it.
FLOORS = [
    ({f"util/common/{name}.h" for name in BASE}, 0),
    ({f"util/common/{name}.h" for name in SCAN_FILES}, 1),
    ({f"util/common/{name}.h" for name in POOL_CONTROL}, 1),
    ({f"util/ostrelscan/{name}.h" for name in ENGINE}, 2),
    ({f"util/ostrelscan/{name}.h" for name in SCREEN}, 3),
    ({f"util/ostrelscan/{name}.h" for name in COMMAND_LINE}, 4),
]


def sources(*folders):
    return sorted(path for folder in folders for pattern in ("*.h", "*.cpp")
                  for path in (ROOT / folder).rglob(pattern))


def name_of(path):
    return path.relative_to(ROOT).as_posix()


def includes(path):
    return re.findall(r'^#include "([^"]+)"', path.read_text(encoding="utf-8"), re.MULTILINE)


def system_includes(path):
    return re.findall(r"^#include <([^>]+)>", path.read_text(encoding="utf-8"), re.MULTILINE)


def room_of(header):
    return next((room for room, (headers, _) in enumerate(FLOORS) if header in headers), None)


def test_every_header_has_a_room():
    homeless = [name_of(path) for path in sources("util") if path.suffix == ".h"
                and room_of(name_of(path)) is None]
    assert homeless == []


def test_no_include_runs_upwards():
    for path in sources("util"):
        if path.suffix == ".h":
            floor = FLOORS[room_of(name_of(path))][1]
            above = [header for header in includes(path) if FLOORS[room_of(header)][1] > floor]
            assert above == [], name_of(path)


def test_common_code_includes_nothing_of_the_tool():
    for path in sources("util/common"):
        assert [header for header in includes(path) if not header.startswith("util/common/")] == []


def test_the_wings_do_not_know_each_other():
    for path in sources("util/common"):
        rooms = {room_of(header) for header in includes(path)}
        assert not {1, 2} <= rooms, name_of(path)


def circles(graph):
    """The headers that reach themselves by including."""
    def reaches(start, goal, seen):
        return any(step == goal or (step not in seen and reaches(step, goal, seen | {step}))
                   for step in graph.get(start, ()))
    return [header for header in graph if reaches(header, header, frozenset())]


def test_no_circle_of_includes():
    assert circles({name_of(path): includes(path)
                    for path in sources("util", "sim") if path.suffix == ".h"}) == []


@pytest.mark.parametrize("library, owners", [
    ("ncurses.h", {"util/ostrelscan/screenInterface.cpp", "util/ostrelscan/screenTerminal.cpp"}),
    ("zlib.h", {"util/common/crc.cpp", "util/common/zlibStreams.h", "util/common/zsbFile.cpp",
                "util/common/zsbFileReader.cpp", "util/common/zsbFileWriter.cpp"}),
    ("dlfcn.h", {"util/common/heb.cpp"}),
])
def test_a_library_is_included_by_its_owners_alone(library, owners):
    users = {name_of(path) for path in sources("util") if library in system_includes(path)}
    assert users == owners


def test_the_stand_in_and_the_support_share_no_code_with_the_tool():
    for path in sources("sim"):
        assert [header for header in includes(path) if header.startswith("util/")] == []
    for name in ("mkpool", "poolPlan", "blockContent", "faultdisk", "faultState", "sizepreload"):
        for path in (ROOT / "tests/support").glob(f"{name}.*"):
            assert [header for header in includes(path) if header.startswith("util/")] == []


def test_files_have_one_subject_and_a_screenful_of_screens():
    tables = {"util/common/errorTable.cpp", "util/common/qdsNitErrorTable.cpp"}
    long = {name_of(path) for path in sources("util", "sim")
            if len(path.read_text(encoding="utf-8").splitlines()) > 500}
    assert long - tables == set()


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_links_of_documents_lead_somewhere(document):
    links = re.findall(r"\]\(([^)#]+)\)", document.read_text(encoding="utf-8"))
    assert [link for link in links if not (document.parent / link).exists()] == []


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_paths_that_documents_name_exist(document):
    text = document.read_text(encoding="utf-8")
    named = re.findall(r"(?<![\w/.])((?:util|sim|tests|docs|scripts|bench|fuzz|\.ci)/[\w/.*-]*)",
                       text)
    paths = [name.rstrip(".") for name in named if "[" not in name]
    missing = [name for name in paths
               if not list(ROOT.glob(name.rstrip("/")))
               and not list(ROOT.glob(name + ".h")) and not list(ROOT.glob(name + ".cpp"))]
    assert missing == []


def test_documented_names_exist_in_the_code():
    code = "".join(path.read_text(encoding="utf-8") for path in sources("util"))
    text = (ROOT / "docs/architecture.md").read_text(encoding="utf-8")
    names = {name for name in re.findall(r"`([A-Za-z_]+)`", text)} - {"main", "finished", "errno"}
    assert names and [name for name in sorted(names) if not re.search(rf"\b{name}\b", code)] == []


def test_the_worked_example_shows_a_real_file(build, tmp_path):
    import loopdev
    import ostrelscan
    if not loopdev.have_loop():
        pytest.skip(loopdev.have_loop().why)
    image = loopdev.sparse_image(tmp_path / "two.img", 8192)
    with open(image, "r+b") as pool:
        pool.seek(4096)
        pool.write(b"SPB5")
    with loopdev.loop(image) as device:
        run = ostrelscan.run(["--bypass-ostrel", "save", "data", device], tmp_path)
    assert run.status == 0
    saved = (tmp_path / "T0000000.ZSB").read_bytes()
    text = (ROOT / "docs/scan-files.md").read_text(encoding="utf-8")
    assert f"\n    {len(saved)} " in text
    dumps = re.findall(r"^    ([0-9a-f]{8}): ((?:[0-9a-f]{4} )+)", text, re.MULTILINE)
    assert len(dumps) >= 5
    for offset, shown in dumps:
        wanted = bytes.fromhex(shown)
        assert saved[int(offset, 16):int(offset, 16) + len(wanted)] == wanted, offset


def test_the_tree_holds_no_machine_paths():
    listed = subprocess.run(["git", "-C", ROOT, "grep", "-nIE", r"(^|[^\w.])/(work|home|root)/"],
                            capture_output=True, text=True, check=False)
    if listed.returncode not in (0, 1):
        pytest.skip("not a git checkout")
    lines = [line for line in listed.stdout.splitlines()
             if not line.startswith("tests/runs/test_tree.py")]
    assert lines == []
