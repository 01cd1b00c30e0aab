"""How the product is built: what stops a build, and what a release's binaries carry."""

import json
import os
import re
import subprocess

import pytest

import house

BINARIES = ("bin/ostrelscan", "bin/zsbtool", "bin/ostrelsim", "bin/ostrelsimctl", "lib/libhebus.so")
PROGRAMS = BINARIES[:-1]


def said(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True,
                          env={**os.environ, "LC_ALL": "C"}).stdout


@pytest.fixture(scope="module")
def release(build):
    """The build folder, where it is one of a hardened build with debug information."""
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    if "\nOSTREL_HARDEN:BOOL=ON\n" not in cache:
        pytest.skip("the build is not hardened: the preset release is")
    return build


@pytest.fixture(scope="module")
def plain_commands(tmp_path_factory):
    """The compiler commands of a build that nobody gave a preset, without its tests."""
    folder = tmp_path_factory.mktemp("plain")
    said("cmake", "-G", "Ninja", "-S", house.ROOT, "-B", folder, "-DBUILD_TESTING=OFF")
    return json.loads((folder / "compile_commands.json").read_text(encoding="utf-8"))


def test_every_program_is_looked_at(release):
    assert {f"bin/{path.name}" for path in (release / "bin").iterdir()} == set(PROGRAMS)


def test_a_build_without_a_preset_does_not_stop_at_warnings(plain_commands):
    assert len(plain_commands) > 50
    assert [entry["file"] for entry in plain_commands
            if "-Wall" not in entry["command"] or "-Werror" in entry["command"]] == []


def test_a_build_without_tests_compiles_the_product_alone(plain_commands):
    names = {entry["file"].removeprefix(f"{house.ROOT}/") for entry in plain_commands}
    assert {name for name in names if not name.startswith(("util/", "sim/"))} == set()


def test_every_preset_stops_at_warnings():
    presets = json.loads((house.ROOT / "CMakePresets.json").read_text(encoding="utf-8"))
    base, *others = presets["configurePresets"]
    assert base["cacheVariables"]["OSTREL_WERROR"] == "ON"
    assert [preset["name"] for preset in others if preset["inherits"] != "base"
            or "OSTREL_WERROR" in preset.get("cacheVariables", {})] == []


def test_the_tree_can_be_added_to_another_build():
    lists = [*house.ROOT.glob("*/CMakeLists.txt"), *house.ROOT.glob("*/*/CMakeLists.txt"),
             *house.ROOT.glob("cmake/*.cmake"), house.ROOT / "CMakeLists.txt"]
    assert len(lists) > 8
    assert [path for path in lists if not path.is_relative_to(house.ROOT / "build") and re.search(
        r"CMAKE_(SOURCE|BINARY)_DIR\b", path.read_text(encoding="utf-8"))] == []


@pytest.mark.parametrize("binary", BINARIES)
def test_a_release_binary_is_hardened(release, binary):
    headers = said("readelf", "--file-header", "--program-headers", "--dynamic", "--wide",
                   release / binary)
    assert re.search(r"Type: +DYN ", headers)
    assert re.search(r"\(FLAGS\) +BIND_NOW", headers)
    assert re.search(r"\(FLAGS_1\) +Flags: NOW PIE" if binary in PROGRAMS
                     else r"\(FLAGS_1\) +Flags: NOW", headers)
    assert re.search(r"GNU_RELRO +0x", headers)
    assert re.search(r"GNU_STACK .* RW +0x", headers)
    symbols = said("readelf", "--dyn-syms", "--wide", release / binary)
    assert "__stack_chk_fail" in symbols


def test_every_source_of_the_product_is_fortified(release):
    commands = json.loads((release / "compile_commands.json").read_text(encoding="utf-8"))
    product = {}
    for entry in commands:
        output = re.search(r" -o ((?:util|sim)/\S+)", entry["command"])
        if output:
            product[output[1]] = entry["command"]
    assert {output.split("/CMakeFiles")[0] for output in product} == {
        "util/common", "util/ostrelscan", "util/zsbtool", "sim"}
    assert [output for output, command in product.items()
            if not re.search(r"-D_FORTIFY_SOURCE=[23]", command)] == []
    assert "__snprintf_chk" in said("readelf", "--dyn-syms", "--wide", release / PROGRAMS[0])


@pytest.mark.parametrize("binary", BINARIES)
def test_every_unit_of_a_release_binary_keeps_frame_pointers_and_guards_its_stack(release, binary):
    producers = re.findall(r"DW_AT_producer .*", said("readelf", "--debug-dump=info",
                                                     release / binary))
    assert producers
    assert [line for line in producers if "-fno-omit-frame-pointer" not in line
            or "-fstack-protector-strong" not in line] == []


@pytest.mark.parametrize("binary", BINARIES)
def test_debug_information_can_be_split_off(release, binary, tmp_path):
    apart, stripped = tmp_path / "apart.debug", tmp_path / "stripped"
    said("objcopy", "--only-keep-debug", release / binary, apart)
    said("objcopy", "--strip-debug", f"--add-gnu-debuglink={apart}", release / binary, stripped)
    assert ".debug_line" in said("readelf", "--sections", "--wide", apart)
    assert ".debug_" not in said("readelf", "--sections", "--wide", stripped)
    ids = [re.search(r"Build ID: ([0-9a-f]{40})", said("readelf", "--notes", path))[1]
           for path in (apart, stripped)]
    assert ids[0] == ids[1]
