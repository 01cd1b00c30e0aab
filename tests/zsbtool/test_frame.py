"""What every command of zsbtool has in common."""

import os

import jsonschema
import pytest

import zsbtool


def test_help_names_every_command_and_each_has_a_help_of_its_own():
    shown = zsbtool.run("--help")
    assert (shown.status, shown.err) == (0, "")
    rows = shown.text.split("Commands:\n")[1].split("\n\n")[0].splitlines()
    names = [row.split()[0] for row in rows]
    assert "status" in names
    for name in names:
        told = zsbtool.run("help", name)
        assert (told.status, told.err) == (0, "")
        assert f"Usage: zsbtool {name} " in told.text
        assert name == "help" or "\nExit status: 0 good, 1 could not run, 2 the set" in told.text
        assert zsbtool.run(name, "--help").text == told.text


@pytest.mark.parametrize("name", ["cat", "check", "compare", "export", "find", "image", "info", "list",
                                  "map", "merge", "mount", "pack", "preflight", "prepare", "report",
                                  "unpack"])
def test_of_sets_that_lie_together_one_can_be_chosen(name):
    told = zsbtool.run("help", name).text
    assert "--prefix T|C" in told and "--ending zsb|zrb" in told


def test_help_without_a_command_is_the_help():
    assert zsbtool.run("help").text == zsbtool.run("--help").text


def test_the_version_is_told():
    shown = zsbtool.run("--version")
    assert (shown.status, shown.err) == (0, "")
    assert shown.text.startswith("zsbtool (OSTREL) ")


@pytest.mark.parametrize("typed", [
    (), ("frobnicate",), ("help", "frobnicate"), ("status",), ("status", "1", "2"),
    ("status", "--frobnicate", "1"), ("--json",)])
def test_a_command_line_that_is_not_legal_ends_with_1_and_nothing_on_standard_output(typed):
    shown = zsbtool.run(*typed)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.startswith("zsbtool: ")


@pytest.mark.parametrize("typed", [("status", "1"), ("--help",), ("status", "--json", "1")])
def test_standard_output_that_cannot_be_written_ends_with_1(typed):
    with open("/dev/full", "wb") as full:
        shown = zsbtool.run(*typed, stdout=full)
    assert (shown.status, shown.err) == (1, "zsbtool: standard output: No space left on device\n")


def test_standard_output_that_is_closed_ends_with_1():
    shown = zsbtool.run("status", "1", before=("/bin/sh", "-c", 'exec "$@" >&-', "sh"))
    assert (shown.status, shown.err) == (1, "zsbtool: standard output: Bad file descriptor\n")


def test_a_broken_pipe_ends_silently():
    read, write = os.pipe()
    os.close(read)
    try:
        shown = zsbtool.run("status", "1", stdout=write)
    finally:
        os.close(write)
    assert (shown.status, shown.err) == (1, "")


@pytest.mark.parametrize("path", sorted(zsbtool.SCHEMAS.glob("*.json")), ids=lambda path: path.stem)
def test_every_schema_is_one(path):
    jsonschema.Draft7Validator.check_schema(zsbtool.schema(path.stem))


def test_a_document_that_is_not_of_its_schema_is_noticed():
    with pytest.raises(zsbtool.NotOfSchema):
        zsbtool.checked("check", "{}")
