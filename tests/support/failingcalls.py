"""Makes every call of a run fail in turn: the first of a function, then the second, and so on until a
run passes untouched. What each run must leave behind is judged here, whatever failed."""

import concurrent.futures
import dataclasses
import errno
import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import termios
import time

import ostrelscan
import restoring
import saving
import scanset

CURSES_BEGINS, CURSES_ENDS = b"\x1b[?1049h", b"\x1b[?1049l"
Z_STREAM_ERROR, Z_DATA_ERROR, Z_MEM_ERROR = -2, -3, -4

SYSTEM = {"fopen": errno.EMFILE, "fopen64": errno.EMFILE, "fdopen": errno.ENOMEM,
          "fseeko64": errno.EIO, "fseek": errno.EIO, "fwrite": errno.ENOSPC, "fread": errno.EIO,
          "getc": errno.EIO, "fflush": errno.ENOSPC, "fclose": errno.EIO, "setvbuf": errno.ENOMEM,
          "fsync": errno.EIO, "open": errno.EMFILE, "stat": errno.EACCES, "fstat": errno.EIO,
          "access": errno.EACCES, "ioctl": errno.EIO, "pread64": errno.EIO, "write": errno.ENOSPC,
          "writev": errno.ENOSPC, "eventfd": errno.EMFILE, "pthread_create": errno.EAGAIN,
          "newterm": errno.ENOMEM}
# A block whose read fails is read again, directly: where that fails too, the block is lost.
RETRIED = {"fread,pread64": errno.EIO}
ZLIB = {"deflateInit_": Z_MEM_ERROR, "deflate": Z_STREAM_ERROR, "deflateReset": Z_STREAM_ERROR,
        "deflateEnd": Z_DATA_ERROR, "inflateInit_": Z_MEM_ERROR, "inflate": Z_DATA_ERROR,
        "inflateReset": Z_STREAM_ERROR, "inflateEnd": Z_STREAM_ERROR}
FUNCTIONS = {**SYSTEM, **RETRIED, **ZLIB}
ONCE, TWICE, FROM_THEN_ON = 1, 2, 0
PER_FILE = 2
MANY = 200  # no short run makes so many calls of one function
STRIDE = int(os.environ.get("OSTREL_STRIDE", "1"))  # every so many of them fail

# Why a run failed, as the log says it: the pass's message, or why there was no pass at all.
REASON = re.compile(r"util/ostrelscan/scanUI\[(497|727|532)\] .*\S"
                    r"|Exception while attempting to create a UserInterface Object:  .*\S"
                    r"|Note: .* asked this run to end")
MEASURED = re.compile(r"Blocks in pool is (\d+)")
READ_ERROR = re.compile(r"  Read error recorded from .*Block - ([0-9a-f]+) Status - [0-9a-f]+")
UNREAD_HEADER = re.compile(r"Note: set/[CT]00(\d{5})\.ZRB does not fit: its header cannot be read")
NOT_OPENED = re.compile(r"Log file error: |Unable to open error log file\.")
NOT_COMPLETE = "ostrelscan.log is not complete: it could not be written."


@dataclasses.dataclass
class Fault:
    """The `at`-th call of a function fails, and with it so many `times`."""
    call: str
    at: int
    times: int = ONCE

    def __str__(self):
        return f"{self.call} {self.at}{', and on' if self.times == FROM_THEN_ON else ''}"

    def environment(self, struck):
        libraries = ":".join(str(ostrelscan.helper(name))
                             for name in ("libnthcall.so", "libsizepreload.so"))
        return {**ostrelscan.preload("libnthcall.so"), "LD_PRELOAD": libraries,
                "NTH_CALL": self.call, "NTH_AT": str(self.at), "NTH_TIMES": str(self.times),
                "NTH_ERROR": str(FUNCTIONS[self.call]), "NTH_STRUCK": str(struck)}


@dataclasses.dataclass
class Ended:
    status: int  # the exit status, or minus a signal's number
    output: bytes  # all that was written to the terminal
    kept: bool  # whether the terminal's modes are what they were
    log: str

    @property
    def text(self):
        return self.output.decode(errors="replace")


def on_terminal(argv, folder, environment, seconds=120):
    """Runs a program on a terminal of its own, and looks at the terminal behind it."""
    master, slave = pty.openpty()
    try:
        before = termios.tcgetattr(slave)
        started = time.monotonic()
        with subprocess.Popen([os.fspath(word) for word in argv], cwd=folder, stdin=slave,
                              stdout=slave, stderr=slave, start_new_session=True,
                              env={**os.environ, "TERM": "xterm-256color", **environment}) as run:
            output = b""
            while run.poll() is None or select.select([master], [], [], 0)[0]:
                if select.select([master], [], [], 0.02)[0]:
                    output += os.read(master, 65536)
                if time.monotonic() > started + seconds:
                    run.kill()
                    raise AssertionError(f"a hang: {environment.get('NTH_CALL')}")
        log = pathlib.Path(folder) / ostrelscan.LOG_NAME
        return Ended(run.returncode, output, termios.tcgetattr(slave) == before,
                     log.read_text(errors="replace") if log.is_file() else "")
    finally:
        os.close(master)
        os.close(slave)


class Save:
    """A short save: what it saves of an image, and whether that is all there."""

    calls = ("fopen", "fread", "fwrite", "fclose", "ioctl", "pthread_create")

    def __init__(self, image, *options):
        self.image = image
        self.options = options
        self.records = dict(saving.expected(image))

    def prepare(self, folder):
        return [*self.options, "save", "POOL", self.image]

    def missing(self, folder, log):
        """What is wrong with a save that said 0. A block that cannot be read is left out and told; a
        device that cannot be measured counts as a few blocks, which is told too."""
        files = scanset.read_set(folder)
        told = {int(block, 16) for block in READ_ERROR.findall(log)}
        blocks = int(MEASURED.search(log)[1]) if MEASURED.search(log) else len(self.records) + 1
        saved = dict(record for file in files for record in file.records)
        wanted = {number: block for number, block in self.records.items()
                  if number not in told and number < blocks}
        problems = [problem for file in files for problem in file.problems]
        flags = [file.header["flags"] for file in files]
        if saved != wanted:
            problems.append(f"saved {sorted(saved)} of {sorted(wanted)}")
        if not flags or not flags[-1] & scanset.LAST_FILE:
            problems.append("no last file")
        return problems


class Restore:
    """A short restore of a set, onto a plain file, which opening empties, or onto a device."""

    calls = ("fopen", "fread", "fwrite", "fclose", "fsync", "fdopen", "pthread_create")

    def __init__(self, records, *, compress=False, device=None):
        self.records = records
        self.compress = compress
        self.device = device

    def prepare(self, folder):
        (folder / "set").mkdir()
        scanset.write_set(folder / "set", self.records, per_file=PER_FILE, compress=self.compress)
        if self.device is not None:
            self._blank()
            return ["--danger", "-P", "set", "restore", "POOL", self.device]
        (folder / "device").write_bytes(b"")
        return ["--validation-skip", "--danger", "-P", "set", "restore", "POOL", "device"]

    def _blank(self):
        """Takes from the device what a restore before this one has left."""
        with open(self.device, "r+b") as device:
            for number, _ in self.records:
                device.seek(number * restoring.BLOCK)
                device.write(restoring.FILLER)

    def missing(self, folder, log):
        """What is wrong with a restore that said 0. A file whose header cannot be read counts as an
        empty one, and a note names it."""
        noted = {int(number) for number in UNREAD_HEADER.findall(log)}
        wrong = [number for at, (number, block) in enumerate(self.records)
                 if at // PER_FILE not in noted
                 and restoring.read_block(self.device or folder / "device", number) != block]
        return [f"blocks {wrong} are not there"] if wrong else []


def told_why(ended):
    """Whether a run that failed says why: in its log, or where it has none, on the terminal."""
    return (any(REASON.fullmatch(line) for line in ended.log.splitlines())
            or NOT_OPENED.search(ended.text) or NOT_COMPLETE in ended.text)


def log_is_closed(ended):
    """Whether every element of the log is closed. A screen that cannot be had leaves its open, and
    a log that cannot be written is told on the terminal."""
    if NOT_COMPLETE in ended.text or NOT_OPENED.search(ended.text):
        return True
    if "Exception while attempting to create a UserInterface Object" in ended.log:
        return "the screen could not be obtained" in ended.text
    return all(run.closed for run in ostrelscan.split_log(ended.log)) and ended.log != ""


def faults_of(ended, work, folder):
    """What is wrong with how a run ended; nothing where it kept what is promised."""
    if ended.status not in (0, 1):
        yield f"it ended with {ended.status}"
    if not ended.kept or ended.output.count(CURSES_BEGINS) != ended.output.count(CURSES_ENDS):
        yield "the terminal was not given back"
    if not log_is_closed(ended):
        yield "the log's element is open"
    if ended.status == 1 and not told_why(ended):
        yield "it does not say why it failed"
    if ended.status == 0:
        yield from work.missing(folder, ended.log)


def strike(work, fault, folder, start):
    """One run; whether the fault struck, and what is wrong with how the run ended."""
    folder.mkdir()
    struck = folder / "struck"
    words = work.prepare(folder)
    ended = start(words, folder, fault.environment(struck))
    wrong = [f"{fault}: {what}" for what in faults_of(ended, work, folder)]
    if wrong:
        wrong.append(f"{ended.text[-300:]!r} {ended.log[-700:]}")
    happened = struck.exists()
    shutil.rmtree(folder)
    return happened, wrong


def walk(work, call, times, folder, start):
    """Counts upward until a run passes untouched; how many calls came before, and what went wrong."""
    found = []
    for at in range(1, MANY, STRIDE):
        struck, wrong = strike(work, Fault(call, at, times), folder / f"{call}.{times}.{at}", start)
        found += wrong
        if not struck:
            return at - 1, found
    return MANY, [f"{call}: there is no end of it"]


def walk_all(work, folder, start, calls=tuple(FUNCTIONS), workers=8):
    """Walks over the functions, each call failing alone and with all behind it: {call: how many
    failed alone}, and what went wrong."""
    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        walks = [(call, pool.submit(walk, work, call, times, folder, start)) for call in calls
                 for times in (TWICE if call in RETRIED else ONCE, FROM_THEN_ON)]
        ended = [(call, *started.result()) for call, started in walks]
    return ({call: struck for call, struck, _ in reversed(ended)},
            [what for *_, wrong in ended for what in wrong])


def start_alone(words, folder, environment):
    """Starts the tool without the service."""
    return on_terminal([ostrelscan.tool(), "--automatic", "--bypass-ostrel", *words], folder,
                       environment)


def start_beside(service):
    """How the tool is started beside a service, in its mount namespace; the faults are the tool's."""
    def start(words, folder, environment):
        settings = [f"{name}={value}" for name, value in environment.items()]
        inside = ["nsenter", "-m", "-t", str(service.process.pid), f"--wdns={folder}", "--", "env",
                  *settings]
        libraries = {"OSTRELSIM_SOCKET": service.socket,
                     "LD_LIBRARY_PATH": str(ostrelscan.build_folder() / "lib")}
        return on_terminal([*inside, ostrelscan.tool(), "--automatic", *words], folder, libraries)
    return start
