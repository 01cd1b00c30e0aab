"""The promises of the documents: links, paths, names, and the worked example."""

import json
import re
import subprocess

import pytest

import house

ROOT = house.ROOT
OTHER_PROGRAMS_OPTIONS = {
    "--build", "--install", "--preset",                              # cmake
    "--add-gnu-debuglink", "--only-keep-debug", "--strip-debug",     # objcopy
    "--gtest",                                                       # a program of unit tests
    "--detach", "--find", "--show",                                  # losetup
    "--rescue",                                                      # ntfsclone
    "--collect", "--unit",                                           # systemd-run
}
SCRIPTS = [path for path in (ROOT / "scripts").iterdir() if path.is_file()]
DOCUMENTS = sorted([*ROOT.glob("*.md"), *ROOT.glob("docs/*.md")])


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_links_of_documents_lead_somewhere(document):
    links = re.findall(r"\]\(([^)#]+)\)", document.read_text(encoding="utf-8"))
    assert [link for link in links if not (document.parent / link).exists()] == []


def anchors(document):
    """The headings of a page as links name them."""
    headings = re.findall(r"^#+ (.*)$", document.read_text(encoding="utf-8"), re.MULTILINE)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_links_into_a_page_lead_to_a_heading(document):
    links = re.findall(r"\]\(([^)#]*)#([^)]+)\)", document.read_text(encoding="utf-8"))
    assert [link for link in links if link[1] not in anchors(
        document.parent / link[0] if link[0] else document)] == []


def test_the_documents_and_manuals_are_spelt_well():
    done = subprocess.run(["codespell", "-L", "deactive", *DOCUMENTS, ROOT / "docs/man"], capture_output=True, text=True,
                          check=False)
    assert (done.returncode, done.stdout) == (0, "")


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


def text_of(*names):
    """The names and texts of files of the tree; folders of the house stand for all their files."""
    tree = {name: text for name, text in house.read_tree().items() if name.startswith(names)}
    return "".join([*tree, *tree.values(), *((ROOT / name).read_text(encoding="utf-8")
                                             for name in names if not name.endswith("/"))])


@pytest.mark.parametrize("document, places, others", [
    ("docs/architecture.md", ["util/"], {"main", "finished", "errno"}),
    ("CONTRIBUTING.md", ["util/", "sim/", "cmake/ProjectOptions.cmake", "CMakePresets.json",
                         "tests/CMakeLists.txt"],
     {"unique_ptr"}),
])
def test_documented_names_exist_in_the_code(document, places, others):
    code = text_of(*places)
    names = set(re.findall(r"`([A-Za-z_][A-Za-z_0-9]*)`", text_of(document))) - others
    assert names and [name for name in sorted(names) if not re.search(rf"\b{name}\b", code)] == []


def test_a_chain_of_the_architecture_page_runs_through_the_files_it_names():
    chain = text_of("docs/architecture.md").split("## Who sets flag 0x010")[1].split("\n## ")[0]
    steps = re.findall(r"^\d\. (.*?)(?=\n\d\.|\n\n)", chain, re.MULTILINE | re.DOTALL)
    assert len(steps) == 5
    for step in steps:
        file, *names = re.findall(r"`([\w.]+)`", step)
        [text] = [text for name, text in house.read_tree().items() if name.endswith(f"/{file}")]
        assert names and [name for name in names if name not in text] == [], file


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_options_that_documents_show_exist(document):
    shown = set(re.findall(r"(?<![\w-])--[a-z][a-z-]+", document.read_text(encoding="utf-8")))
    code = text_of("util/", "sim/", *(f"scripts/{path.name}" for path in SCRIPTS))
    assert [option for option in sorted(shown - OTHER_PROGRAMS_OPTIONS)
            if not re.search(rf'(--|"|,--){option[2:]}\b', code)] == []


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_builds_and_tests_that_documents_show_exist(document):
    text = document.read_text(encoding="utf-8")
    presets = json.loads(text_of("CMakePresets.json"))["configurePresets"]
    assert set(re.findall(r"--preset (\w+)", text)) <= {preset["name"] for preset in presets}
    lists = text_of("CMakeLists.txt", "cmake/ProjectOptions.cmake")
    assert [name for name in re.findall(r"-D(\w+)=", text) if name not in lists] == []
    runs = {f"runs.{path.stem}" for path in ROOT.glob("tests/runs/test_*.py")}
    assert set(re.findall(r"ctest .*-R (\S+)", text)) <= runs
    units = " ".join(re.findall(r"^TEST\w*\((\w+),", "".join(
        path.read_text(encoding="utf-8") for path in ROOT.glob("tests/util/**/*Test.cpp")), re.M))
    assert [name for name in re.findall(r"--gtest_filter='\*(\w+)\*'", text)
            if name not in units] == []


def test_every_page_is_named_in_the_readme():
    readme = text_of("README.md")
    assert [page.name for page in ROOT.glob("docs/*.md")
            if f"](docs/{page.name})" not in readme] == []


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
