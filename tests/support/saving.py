"""Saves as tests want them: devices over sample pools, runs, and what they must save."""

import contextlib
import dataclasses
import os
import pathlib
import subprocess

import loopdev
import ostrelscan
import poolTypes
import scanset
import screen

OTHER_LEAF = {"SPB5": "BT leaf Z64", "SB64": "BT leaf Z32"}
SYSTEM_ERROR = 0x22BA5000
ZLIB_WARNING = "warning: different zlib version"


@contextlib.contextmanager
def attached(pool, folder):
    """A read-only loop device over a sample pool, under a name of the test's own: the name is how
    a loop device is told from those of other tests."""
    image = pathlib.Path(folder) / "pool.img"
    try:
        os.link(pool.path, image)
    except OSError:
        pool.copy_to(image)
    with loopdev.loop(image, read_only=True) as device:
        yield device


def image_of(path, blocks, magics):
    """An image of so many blocks, zero but for {number: magic}; each of those holds its number."""
    loopdev.sparse_image(path, blocks * loopdev.BLOCK_BYTES)
    with open(path, "r+b") as image:
        for number, magic in magics.items():
            image.seek(number * loopdev.BLOCK_BYTES)
            image.write((magic + number.to_bytes(4, "little") * 1024)[:loopdev.BLOCK_BYTES])
    return pathlib.Path(path)


def run_of(path, blocks, selected):
    """An image of so many blocks whose blocks 1 to `selected` are of selected types."""
    return image_of(path, blocks, {1: b"SPB5", **dict.fromkeys(range(2, selected + 1), b"BRCH")})


def unselected(superblock, *, all_blocks=False, validated=True):
    """The types that a save leaves out."""
    names = set() if all_blocks else {"User"}
    return names | ({OTHER_LEAF[superblock]} if validated else set())


def expected(path, superblock="SPB5", *, all_blocks=False, validated=True, bad=()):
    """The records that a save must make of this device or image: [(number, block)]."""
    out = unselected(superblock, all_blocks=all_blocks, validated=validated)
    return [(number, block) for number, block in poolTypes.blocks(path)
            if number not in bad and poolTypes.classify(block) not in out]


def arguments(device, *options):
    return ["--bypass-ostrel", *options, "save", "data", device]


def save(device, folder, *options, **how):
    """A run without a terminal, automatic unless told otherwise; `how` as for ostrelscan.run."""
    return ostrelscan.run(arguments(device, *options), folder, **how)


def assert_saved(folder, records):
    """The files of a folder are whole and hold these records, no more and no fewer."""
    files = scanset.read_set(folder)
    assert [file.problems for file in files] == [[]] * len(files)
    saved = [record for file in files for record in file.records]
    assert [number for number, _ in saved] == [number for number, _ in records]
    assert saved == records
    return files


@contextlib.contextmanager
def on_screen(device, folder, *options, wait=True, **how):
    """A run under a pseudo-terminal; with `wait` it is one that waits for a key in the end."""
    argv = [ostrelscan.tool(), *(() if wait else ("--automatic",)), *arguments(device, *options)]
    with screen.Terminal(argv, cwd=folder, **how) as terminal:
        yield terminal


class Feed:
    """A pipe that stands in for a device, so that the test says when a block can be read. It has
    no size, so it counts as three blocks."""

    def __init__(self, path):
        os.mkfifo(path)
        self.path = path
        self._file = None

    def open(self):
        self._file = os.open(self.path, os.O_WRONLY)

    def block(self, magic=b"BRCH"):
        os.write(self._file, magic.ljust(4096, b"\0"))

    def close(self):
        if self._file is not None:
            os.close(self._file)


@contextlib.contextmanager
def running(folder, *options, **how):
    """A save in the middle of its work: (terminal, feed), waiting for its first block."""
    feed = Feed(pathlib.Path(folder) / "feed")
    with on_screen(feed.path, folder, "--validation-skip", *options, **how) as terminal:
        try:
            feed.open()
            yield terminal, feed
        finally:
            feed.close()


@dataclasses.dataclass
class TerminalRun:
    status: int  # exit status
    picture: screen.Picture  # the last one of the curses screen
    text: str  # what stands on the terminal after the run
    output: bytes  # everything that was written to the terminal
    log: str
    restored: bool  # whether the terminal's modes are what they were

    @property
    def log_run(self):
        return ostrelscan.split_log(self.log)[-1]


# The trap lets the shell outlive an interrupt; programs that it starts do not inherit it.
SHELL_FRAME = 'trap : INT; stty -g >stty.before; "$@"; echo $? >status; stty -g >stty.after'


def run_on_terminal(argv, folder, *, redirect="", timeout=60, **how):
    """Runs the tool from a shell on a pseudo-terminal and looks at the terminal's modes before and
    after; `redirect` is shell text such as "</dev/null"."""
    with in_shell(argv, folder, redirect=redirect, **how) as terminal:
        terminal.wait_exit(timeout)
        return outcome(terminal, folder)


def run_in_shell(script, folder, *words, timeout=60, **how):
    """As run_on_terminal, of a script in which "$0" is the tool and "$1" the first word."""
    command = ["/bin/sh", "-c", script, ostrelscan.tool(), *words]
    with in_frame(command, folder, **how) as terminal:
        terminal.wait_exit(timeout)
        return outcome(terminal, folder)


def in_shell(argv, folder, *, redirect="", **how):
    """The terminal for such a run, for tests that want to do something meanwhile."""
    return in_frame([ostrelscan.tool(), *argv], folder, redirect=redirect, **how)


def in_frame(command, folder, *, redirect="", **how):
    frame = SHELL_FRAME.replace('"$@"', f'"$@" {redirect}')
    return screen.Terminal(["/bin/sh", "-c", frame, "sh", *command], cwd=folder, **how)


def outcome(terminal, folder):
    """What became of a run from `in_shell` that has ended."""
    folder = pathlib.Path(folder)
    log = folder / ostrelscan.LOG_NAME
    read = {name: (folder / name).read_text(encoding="ascii").strip()
            for name in ("status", "stty.before", "stty.after")}
    return TerminalRun(int(read["status"]), terminal.last_full(), terminal.now().text,
                       terminal.output, log.read_text(errors="replace") if log.is_file() else "",
                       read["stty.before"] == read["stty.after"])


def failed_line(status):
    """What a failed run says on standard output."""
    return f"Scan failed (see ostrelscan.log for more details): {status}"


NO_SCREEN = "util/ostrelscan/scanUI[1106]"  # the last words of a run that could not have one


def assert_orderly(run):
    """The run has ended by itself, with the terminal as it was and its end told."""
    assert run.status in (0, 1)
    assert run.restored
    assert "terminate called" not in run.text
    told = [line for line in run.text.splitlines() if line]
    assert (run.status == 1) == bool(told), told
    if run.log:
        assert run.log.splitlines()[-1] in ("</ostrelscan>", NO_SCREEN)


@contextlib.contextmanager
def tmpfs(folder, options):
    """A file system of its own on a new folder; OSError where mounting is not allowed."""
    folder = pathlib.Path(folder)
    folder.mkdir()
    done = subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", folder],
                          capture_output=True, text=True, check=False)
    if done.returncode != 0:
        # The reason alone, without the folder: skips are counted by reason.
        raise OSError(done.stderr.partition("\n")[0].rpartition(": ")[2])
    try:
        yield folder
    finally:
        subprocess.run(["umount", folder], check=True)
