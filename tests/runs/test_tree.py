"""What holds for the tree as a whole, in a checkout or in an archive of it."""

import os
import pathlib
import re

import pytest

import house

MACHINE_PATH = re.compile(rb"(?<![\w.])/(?:work|home|root)/")


def files(root):
    """Every file that belongs to the tree: what tools and builds leave behind does not."""
    for folder, inside, names in os.walk(root):
        inside[:] = sorted(name for name in inside
                           if name not in {"build", "__pycache__"}
                           and (name == ".ci" or not name.startswith("."))
                           and not pathlib.Path(folder, name, "CMakeCache.txt").exists())
        yield from (pathlib.Path(folder, name) for name in sorted(names)
                    if name not in {".git", "compile_commands.json", "ostrelscan.log"})


def with_machine_paths(root):
    return [path.relative_to(root).as_posix() for path in files(root)
            if MACHINE_PATH.search(path.read_bytes())]


def test_the_tree_holds_no_machine_paths():
    walked = {path.relative_to(house.ROOT).as_posix() for path in files(house.ROOT)}
    assert {".ci/run", ".clang-tidy", "CMakeLists.txt", "scripts/test", "sim/main.cpp",
            "tests/runs/test_tree.py", "util/common/log.h"} <= walked
    assert with_machine_paths(house.ROOT) == []


@pytest.mark.parametrize("name, found", [
    ("docs/page.md", True),
    (".ci/run", True),
    (".clang-tidy", True),
    ("build/release/build.ninja", False),
    ("packaged/CMakeCache.txt", False),
    (".git/config", False),
    (".git", False),
    ("tests/__pycache__/test.pyc", False),
])
def test_a_machine_path_is_found_in_the_tree_alone(name, found, tmp_path):
    planted = tmp_path / name
    planted.parent.mkdir(parents=True, exist_ok=True)
    planted.write_text("see " + "/ho" + "me/somebody/pool.img\n", encoding="utf-8")
    assert with_machine_paths(tmp_path) == ([name] if found else [])


def test_files_have_one_subject_and_a_screenful_of_screens():
    tables = {"util/common/errorTable.cpp", "util/common/qdsNitErrorTable.cpp"}
    long = {name for name, text in house.read_tree().items() if len(text.splitlines()) > 500}
    assert long - tables == set()
