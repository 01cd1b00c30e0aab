"""What a release looks at before it makes anything."""

import os
import shutil
import subprocess

import pytest

import house

CHANGELOG = """# Changelog

## [Unreleased]

## [2.00] - 2026-11-30

### Added

- Something.

## [1.0] - 2020-01-01

- Something else.
"""


@pytest.fixture
def tree(tmp_path):
    """A repository with what a release looks at, ready for one."""
    (tmp_path / "scripts").mkdir()
    for name in ("CMakeLists.txt", "scripts/release"):
        shutil.copy(house.ROOT / name, tmp_path / name)
    (tmp_path / "CHANGELOG.md").write_text(CHANGELOG, encoding="utf-8")
    commit(tmp_path, "init")
    return tmp_path


def commit(tree, *first):
    for words in (first, ("add", "-A"), ("commit", "-qm", "A change")):
        if words:
            subprocess.run(["git", "-c", "user.name=n", "-c", "user.email=e", *words], cwd=tree,
                           check=True, capture_output=True, env={**os.environ,
                                                                 "GIT_CONFIG_GLOBAL": "/dev/null"})


def release(tree, *words):
    return subprocess.run([tree / "scripts/release", *words], capture_output=True, text=True,
                          check=False)


def test_a_tree_that_is_ready_shows_its_notes(tree):
    done = release(tree, "2.00", "--check")
    assert (done.returncode, done.stdout, done.stderr) == (0, "### Added\n\n- Something.\n\n", "")


@pytest.mark.parametrize("before, after, complaint", [
    ("## [2.00] - 2026-11-30", "## [2.00]", 'CHANGELOG.md has no line "## [2.00] - YYYY-MM-DD"'),
    ("### Added\n\n- Something.\n", "", "CHANGELOG.md says nothing of 2.00"),
    ("## [Unreleased]\n", "## [Unreleased]\n\n- A thing.\n",
     "CHANGELOG.md still has something under [Unreleased]"),
])
def test_a_changelog_that_is_not_ready_is_refused(tree, before, after, complaint):
    (tree / "CHANGELOG.md").write_text(CHANGELOG.replace(before, after), encoding="utf-8")
    commit(tree)
    done = release(tree, "2.00", "--check")
    assert (done.returncode, done.stdout, done.stderr) == (1, "", f"release: {complaint}\n")


def test_a_tree_that_is_not_ready_is_refused(tree):
    assert release(tree, "2.01", "--check").stderr == (
        "release: CMakeLists.txt says version 2.00, not 2.01\n")
    assert release(tree).stderr == "release: which version? scripts/release VERSION\n"
    (tree / "new").touch()
    assert release(tree, "2.00", "--check").stderr == "release: something is not committed\n"
    commit(tree, "tag", "2.00")
    assert release(tree, "2.00", "--check").stderr == "release: there is a tag 2.00 already\n"


def test_the_version_has_one_place():
    version = subprocess.run(["grep", "-rlF", "2.00", "--include=*.cpp", "--include=*.h",
                              "--include=*.txt", "--include=*.cmake", "--include=control",
                              house.ROOT / "util", house.ROOT / "sim", house.ROOT / "cmake",
                              house.ROOT / "debian", house.ROOT / "CMakeLists.txt"],
                             capture_output=True, text=True, check=True).stdout.split()
    assert version == [str(house.ROOT / "CMakeLists.txt")]
