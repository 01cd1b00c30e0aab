"""Runs zsbtool as a person types it, and holds what it prints for programs against its schema."""

import dataclasses
import datetime
import functools
import json
import os
import pathlib
import subprocess

import fastjsonschema
import pytest

import ostrelscan

NotOfSchema = fastjsonschema.JsonSchemaException
SCHEMAS = pathlib.Path(__file__).resolve().parents[2] / "docs" / "schema"


def program():
    return ostrelscan.build_folder() / "bin" / "zsbtool"


@dataclasses.dataclass
class Run:
    status: int  # the exit status, or minus a signal's number
    out: bytes
    err: str

    @property
    def text(self):
        return self.out.decode()


@functools.lru_cache
def schema(command):
    return json.loads((SCHEMAS / f"{command}.json").read_text(encoding="utf-8"))


@functools.lru_cache
def _validator(command):
    return fastjsonschema.compile(schema(command))


def run(*arguments, env=None, timeout=120, before=(), **how):
    """Runs it without a terminal; `before` is a command to run it under, `env` adds to the
    environment, `how` goes to subprocess.run."""
    argv = [*map(str, before), str(program()), *map(str, arguments)]
    how = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **how}
    done = subprocess.run(argv, env={**os.environ, **(env or {})}, timeout=timeout, check=False,
                          **how)
    return Run(done.returncode, done.stdout or b"", (done.stderr or b"").decode())


def iso_time(seconds):
    """A time as it stands in a document."""
    return datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).strftime(
        "%Y-%m-%dT%H:%M:%SZ")


def _no_twins(pairs):
    names = [name for name, _ in pairs]
    assert len(names) == len(set(names)), f"a name stands twice: {names}"
    return dict(pairs)


def checked(command, text):
    """The document in a text, which must be of its command's schema."""
    document = json.loads(text, object_pairs_hook=_no_twins)
    _validator(command)(document)
    return document


def document(command, *arguments, status=0, **how):
    """What `command --json` prints, held against its schema; nothing else may be said."""
    done = run(command, "--json", *arguments, **how)
    assert (done.status, done.err) == (status, "")
    return checked(command, done.out)


def on_small_disk(folder, size):
    """A command to run the program under: `folder` is a file system of `size` of its own meanwhile.
    What stands there at the end is told on standard error."""
    script = ('folder=$1; shift; mount -t tmpfs -o "size=$0" none "$folder"; "$@"; status=$?; '
              'ls -A "$folder" >&2; exit $status')
    return "unshare", "--mount", "sh", "-c", script, size, folder


def signalled(number, *arguments):
    """Runs a command and sends it a signal when its output is whole and about to be synced."""
    return run(*arguments, env=ostrelscan.preload(
        "libsignalat.so", SIGNAL_CALL="fsync", SIGNAL_NUMBER=str(int(number))))


def needs_no_file_of_the_sanitizers():
    """Marks a test that lets a program write no file at all."""
    return pytest.mark.skipif(ostrelscan.sanitizer() == "libtsan",
                              reason="ThreadSanitizer writes a file before the program begins")
