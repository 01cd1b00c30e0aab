"""The manuals: what formats them is silent, and they hold against the programs."""

import os
import re
import shutil
import subprocess

import pytest

import house
import scanset

SOURCES = sorted((house.ROOT / "docs/man").glob("*.scd"))
PAGES = [path.stem for path in SOURCES]
OPTION = r"(?<![\w-])(--[a-z][a-z-]+|-[A-Za-z](?![\w-]))"


def help_of(build, *words):
    return subprocess.run([build / "bin" / words[0], *words[1:]], capture_output=True, text=True,
                          check=True).stdout


def zsbtool_commands(build):
    """What the program says of each of its commands, by its name."""
    shown = help_of(build, "zsbtool", "--help").split("\nCommands:\n")[1]
    return dict(re.findall(r"^  ([a-z][a-z-]*) +(.*)$", shown.split("\n\n")[0], re.MULTILINE))


def source_of(page):
    return (house.ROOT / f"docs/man/{page}.scd").read_text(encoding="utf-8")


def section(page, title):
    return re.split(r"^# ", source_of(page).split(f"\n# {title}\n")[1], flags=re.MULTILINE)[0]


def options_in(text):
    return set(re.findall(OPTION, text.replace("*", "").replace("_", "")))


def terms(text):
    """The lines that a description is indented below."""
    return "\n".join(re.findall(r"^(\S.*)\n(?=\t)", text, re.MULTILINE))


@pytest.mark.parametrize("page", PAGES)
def test_a_page_is_formatted_without_a_warning(build, page):
    done = subprocess.run(["man", "--warnings", "--local-file", build / "man" / page],
                          capture_output=True, text=True, check=False,
                          env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80"})
    assert (done.returncode, done.stderr) == (0, "")
    assert "DANGERS" in done.stdout


@pytest.mark.parametrize("page", PAGES)
def test_a_page_tells_dangers_before_it_tells_how(page):
    titles = re.findall(r"^# (.*)$", source_of(page), re.MULTILINE)
    wanted = (["NAME", "DANGERS", "DESCRIPTION", "EXAMPLES", "SEE ALSO"] if page == "zsb.5" else
              ["NAME", "SYNOPSIS", "DANGERS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "EXAMPLES",
               "SEE ALSO"])
    assert [title for title in titles if title in wanted] == wanted


def test_every_command_has_a_page_that_the_program_names(build):
    commands = {name: what for name, what in zsbtool_commands(build).items() if name != "help"}
    assert commands and [page for page in PAGES if page.startswith("zsbtool-")] == sorted(
        f"zsbtool-{name}.1" for name in commands)
    listed = re.findall(r"^\*zsbtool-([a-z-]+)\*\(1\)\n\t(.*)\.$", section("zsbtool.1", "COMMANDS"),
                        re.MULTILINE)
    assert dict(listed) == commands
    assert [name for name, _ in listed] == sorted(commands)


@pytest.mark.parametrize("page", [page for page in PAGES if page.startswith("zsbtool")])
def test_a_page_of_the_companion_has_its_options(build, page):
    command = page.removeprefix("zsbtool").removesuffix(".1").removeprefix("-")
    shown = help_of(build, "zsbtool", *([command] if command else []), "--help")
    assert options_in(terms(section(page, "OPTIONS"))) == options_in(shown.split("\nOptions:\n")[1])


@pytest.mark.parametrize("page, title", [
    ("ostrelscan.8", "OPTIONS"), ("ostrelsim.8", "OPTIONS")])
def test_a_page_has_the_options_of_its_program(build, page, title):
    shown = help_of(build, page[:-2], "--help")
    listed = re.findall(r"^ +(-.*?)(?:  |$)", shown, re.MULTILINE)
    assert options_in(terms(section(page, title))) == options_in("\n".join(listed)) != set()


def test_the_page_of_the_control_command_has_its_commands_options_and_faults(build):
    shown = help_of(build, "ostrelsimctl", "--help")
    page = source_of("ostrelsimctl.1")
    assert options_in(page.split("# DANGERS")[1].split("# EXIT")[0]) == options_in(shown) | {"--help"}
    commands = set(re.findall(r"^  ([a-z-]+)", shown, re.MULTILINE))
    faults = set(re.findall(r"\b([a-z]+(?:-[a-z]+)*)(?= [A-Z[]|,)", shown.split("[--after N]")[1].split(
        "clear\n")[0].replace("[cut|empty|not-xml|no-result|no-operation-result|no-attribute]", "")))
    assert len(commands) > 10 and len(faults) > 10
    assert [name for name in sorted(commands | faults) if f"*{name}*" not in page] == []


def test_the_page_of_the_check_names_every_finding():
    page = (house.ROOT / "docs/zsbtool.md").read_text(encoding="utf-8")
    table = page.split("\n## I was sent a set\n")[1].split("\n## ")[0]
    codes = {code for row in re.findall(r"^\| (`[a-z`, -]+`) \|", table, re.MULTILINE)
             for code in re.findall(r"`([a-z-]+)`", row)}
    assert len(codes) > 25
    assert codes == set(re.findall(r"^\*([a-z-]+)\*$", section("zsbtool-check.1", "FINDINGS"),
                                   re.MULTILINE))


def test_the_page_of_the_format_has_its_fields_and_flags():
    page = source_of("zsb.5")
    rows = re.findall(r"^\|\[ (\d+)\n:\[ .*\n:\[ (\w+)$", page, re.MULTILINE)
    assert [(name, int(offset)) for offset, name in rows] == [
        (name, offset) for name, offset, _ in scanset.FIELDS]
    flags = {int(flag, 16) for flag in re.findall(r"^\*(0x[0-9a-f]+)\*$", page, re.MULTILINE)}
    assert flags | {scanset.WITH_COMPRESSED} == {
        scanset.COMPRESSED, scanset.LAST_FILE, scanset.AS_RAW, scanset.STOPPED,
        scanset.STATE_CHANGE, scanset.FOURTH_CLOSE, scanset.WITH_COMPRESSED, scanset.HAD_ERROR,
        scanset.ANY_BLOCK, scanset.BYPASSED}


def test_an_installation_has_everything_in_its_place(build, tmp_path):
    subprocess.run(["cmake", "--install", build, "--prefix", tmp_path], check=True,
                   capture_output=True)
    installed = {path.relative_to(tmp_path).as_posix() for path in tmp_path.rglob("*")
                 if path.is_file()}
    pages = {f"share/man/man{page[-1]}/{page}" for page in PAGES if "sim" not in page}
    completions = {f"share/{place}{name}" for name in ("ostrelscan", "zsbtool")
                   for place in ("bash-completion/completions/", "zsh/site-functions/_")}
    assert {"bin/ostrelscan", "bin/zsbtool"} | completions | pages <= installed
    documents = {f"share/doc/ostrelscan/{name}" for name in (
        "operators.md", "zsbtool.md", "scan-files.md", "zsb.ksy", "zsb.magic", "zsbreader.py",
        "schema/check.json", "pictures/save.svg")}
    assert documents <= installed
    assert [name for name in sorted(installed) if re.search(r"sim|hebus|\.scd", name)
            and name != "share/doc/ostrelscan/ostrelsim.md"] == []
    mandb = {**os.environ, "MANPATH": str(tmp_path / "share/man")}
    for page in sorted(pages):
        found = subprocess.run(["man", "--where", os.path.basename(page)[:-2]], env=mandb,
                               capture_output=True, text=True, check=True).stdout.strip()
        assert found == str(tmp_path / page)


def test_what_formats_the_pages_is_there():
    assert shutil.which("scdoc") and shutil.which("man")
