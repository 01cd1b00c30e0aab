"""Runs the tool without a terminal and takes its run log apart."""

import dataclasses
import os
import pathlib
import re
import subprocess
import time

LOG_NAME = "ostrelscan.log"


def build_folder():
    """The build folder under test: OSTREL_BUILD holds bin/ostrelscan and tests/mkpool."""
    folder = os.environ.get("OSTREL_BUILD")
    if not folder:
        raise RuntimeError("OSTREL_BUILD must name the build folder, as CTest does")
    return pathlib.Path(folder).resolve()


def tool():
    return build_folder() / "bin" / "ostrelscan"


def helper(name):
    """A program or library of the test support, in the build folder's tests/."""
    return build_folder() / "tests" / name


def sanitizer():
    """The library of the sanitizer that is in the programs, which maps, opens and writes more than
    they do themselves: "libasan", "libtsan" or none."""
    linked = subprocess.run(["ldd", tool()], capture_output=True, text=True, check=True).stdout
    return next((name for name in ("libasan", "libtsan") if name in linked), None)


def sanitized():
    """Whether a sanitizer is in the programs."""
    return sanitizer() is not None


def preload(*libraries, **settings):
    """The environment that loads libraries of the test support before a program."""
    options = os.environ.get("ASAN_OPTIONS", "")
    return {"LD_PRELOAD": ":".join(str(helper(library)) for library in libraries), **settings,
            "ASAN_OPTIONS": f"{options}:verify_asan_link_order=0".lstrip(":")}


def preload_environment():
    """What makes an image file answer the size request of a block device."""
    return preload("libsizepreload.so")


@dataclasses.dataclass
class LogRun:
    """One <ostrelscan> element of a run log."""

    lines: list  # all between the first and the last tag
    closed: bool = False

    def _values(self, pattern):
        return [match[1] for line in self.lines if (match := re.fullmatch(pattern, line))]

    @property
    def version(self):
        return self._values(r"  Version: (.*)")[0]

    @property
    def build(self):
        return self._values(r"  Build: (.*)")[0]

    @property
    def arguments(self):
        return self._values(r' <argv index="0x[0-9a-f]+" argv="(.*)" />')

    @property
    def times(self):
        """The time stamps of the run, in seconds since 1970."""
        return [int(t) for t in self._values(r'<CurrentTime time=".*" timeValue="(\d+)" />')]

    @property
    def body(self):
        """The lines behind the header: those after the first time stamp."""
        first = next(i for i, line in enumerate(self.lines) if line.startswith("<CurrentTime "))
        return self.lines[first + 1:]


def split_log(text):
    """The runs of a log, oldest first; a line outside of every run is an error."""
    runs = []
    for line in text.splitlines():
        if line == "<ostrelscan>":
            runs.append(LogRun([]))
        elif not runs or runs[-1].closed:
            raise ValueError(f"a line outside of every run: {line!r}")
        elif line == "</ostrelscan>":
            runs[-1].closed = True
        else:
            runs[-1].lines.append(line)
    return runs


@dataclasses.dataclass
class Run:
    status: int  # the exit status, or minus a signal's number
    stdout: str
    stderr: str
    log: str  # the whole run log, "" when there is none
    seconds: float
    folder: pathlib.Path

    @property
    def log_run(self):
        return split_log(self.log)[-1]


def run(arguments, folder, *, automatic=True, preload=False, program=None, env=None,
        term="xterm-256color", timeout=60, before=()):
    """Runs the tool in `folder`, where its log goes, with standard input from /dev/null.
    `before` is a command to run it under; `env` adds to the environment, None takes away."""
    argv = [*map(str, before), str(program or tool())]
    argv += ["--automatic"] * automatic + [str(argument) for argument in arguments]
    full = {**os.environ, "TERM": term, **(preload_environment() if preload else {}),
            **(env or {})}
    full = {name: value for name, value in full.items() if value is not None}
    started = time.monotonic()
    done = subprocess.run(argv, cwd=folder, env=full, stdin=subprocess.DEVNULL,
                          capture_output=True, timeout=timeout, check=False)
    seconds = time.monotonic() - started
    log = pathlib.Path(folder) / LOG_NAME
    return Run(done.returncode, done.stdout.decode(errors="replace"),
               done.stderr.decode(errors="replace"),
               log.read_text(errors="replace") if log.is_file() else "", seconds,
               pathlib.Path(folder))
