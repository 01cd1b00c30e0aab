"""What a release looks at before it makes anything, and what its packages hold."""

import os
import re
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


def packaged(kind):
    """The paths in debian/*.install or debian/*.docs, by their package."""
    return {path.stem: path.read_text(encoding="utf-8").split()
            for path in (house.ROOT / "debian").glob(f"*.{kind}")}


def test_the_packages_hold_every_manual_completion_and_program():
    held = [path for paths in packaged("install").values() for path in paths]
    man = [f"usr/share/man/man{page.stem[-1]}/{page.stem}"
           for page in (house.ROOT / "docs/man").glob("*.scd")]
    completions = [f"usr/share/bash-completion/completions/{path.name}"
                   for path in (house.ROOT / "completions/bash").iterdir()]
    programs = [f"usr/bin/{name}" for name in ("ostrelscan", "zsbtool", "ostrelsim", "ostrelsimctl")]
    patterns = [re.escape(path).replace(r"\*", "[^/]*") for path in held]
    for path in man + completions + programs:
        assert len([pattern for pattern in patterns if re.fullmatch(pattern, path)]) == 1, path


def test_the_packages_hold_the_pages_that_are_not_for_developers():
    held = {path for paths in packaged("docs").values() for path in paths}
    assert [path for path in held if not (house.ROOT / path).exists()] == []
    pages = {f"docs/{path.name}" for path in (house.ROOT / "docs").glob("*.md")}
    assert pages - held <= {"docs/architecture.md", "docs/performance.md", "docs/testing.md",
                            "docs/training.md"}


def test_the_pictures_of_a_packaged_page_lie_beside_it():
    for pages in packaged("docs").values():
        text = "".join((house.ROOT / page).read_text(encoding="utf-8") for page in pages
                       if page.endswith(".md"))
        assert "](pictures/" not in text or "docs/pictures" in pages


def test_the_packages_for_rpm_hold_what_those_for_debian_hold():
    spec = (house.ROOT / "rpm/ostrelscan.spec").read_text(encoding="utf-8")
    paths, docs = {}, {}
    for name, section in re.findall(r"^%files(?: -n (\w+))?\n((?:.+\n)+)", spec, re.MULTILINE):
        package = name or "ostrelscan"
        first, *rest = section.splitlines()
        docs[package] = first.removeprefix("%doc ").split()
        for macro, place in (("%{_bindir}", "usr/bin"), ("%{_mandir}", "usr/share/man"),
                             ("%{_datadir}", "usr/share"), ("%{_libdir}", "usr/lib/*"),
                             ("site-functions", "vendor-completions")):
            rest = [path.replace(macro, place) for path in rest]
        paths[package] = [re.sub(r"(\.\d)\*$", r"\1", path) for path in rest]
    assert (paths, docs) == (packaged("install"), packaged("docs"))


def test_every_test_of_the_packages_is_declared():
    folder = house.ROOT / "debian/tests"
    declared = re.findall(r"^Tests: (.*)$", (folder / "control").read_text(encoding="utf-8"),
                          re.MULTILINE)
    assert sorted([*declared, "control"]) == sorted(path.name for path in folder.iterdir())


def test_what_a_package_is_built_with_is_what_bootstrap_installs():
    control = (house.ROOT / "debian/control").read_text(encoding="utf-8")
    needed = re.findall(r"^ ([a-z0-9+.-]+),$", control.split("\nStandards-Version")[0], re.MULTILINE)
    bootstrap = (house.ROOT / "scripts/bootstrap").read_text(encoding="utf-8").split()
    assert len(needed) > 8 and set(needed) - set(bootstrap) == set()
