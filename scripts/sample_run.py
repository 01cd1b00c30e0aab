"""The demonstration behind scripts/demo.

The full road needs loop devices and FUSE: a stand-in of the storage service runs beside the tool, and
the pool's devices are real block devices. Without them the tool works on image files, by a preload
library that answers for their size, and bypasses the service.
"""

import collections
import contextlib
import fcntl
import os
import pathlib
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import termios
import textwrap
import time
import tty

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "support"))

import loopdev
import ostrelscan
import poolTypes
import pools
import scanset
import screen

POOL = "SAMPLE"
SIZE = os.environ.get("SAMPLE_SIZE", "192M")
PAUSE = float(os.environ.get("SAMPLE_PAUSE", "10"))  # seconds that a last screen waits for a key
LOCK = os.environ.get("SAMPLE_LOCK")
PAUSED = "SAMPLE_STEPS"  # set in the environment of a demonstration that waits between its steps
BIN = ostrelscan.build_folder() / "bin"


def say(text, look=""):
    """Opens a step of the story, and says what to look at in it."""
    print(f"\n== {text}", flush=True)
    if look:
        print(textwrap.fill(f"Look at {look}.", 100), flush=True)


def wait_for_key():
    """Between two steps, where --pause asks for that."""
    if os.environ.get(PAUSED):
        print("-- a key goes on --", flush=True)
        if sys.stdin.isatty():
            before = termios.tcgetattr(sys.stdin)
            tty.setcbreak(sys.stdin)
            try:
                os.read(sys.stdin.fileno(), 1024)
            finally:
                termios.tcsetattr(sys.stdin, termios.TCSADRAIN, before)
        else:
            sys.stdin.readline()


def wait_until_built():
    """Whoever builds a program that comes late in the story holds a lock until it is there."""
    if LOCK is not None:
        with open(LOCK, encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_SH)


class Road:
    """How the tool is run: with the service and real devices, or without."""

    def __init__(self, folder, device, target, service):
        self.folder = pathlib.Path(folder)
        self.device = device
        self.target = target
        self.service = service
        self.environment = {} if service else ostrelscan.preload_environment()

    def arguments(self, *words):
        return [BIN / "ostrelscan", *([] if self.service else ["--bypass-ostrel"]), *words]

    def terminal(self, *words, **size):
        return screen.Terminal(self.arguments(*words), env=self.environment, cwd=self.folder,
                               **size)

    def show(self, *words):
        """Runs the tool on this terminal, or shows its last screen where there is none."""
        print("$ ostrelscan", *words, flush=True)
        if sys.stdin.isatty() and sys.stdout.isatty():
            size = shutil.get_terminal_size((80, 25))  # some terminals have no size
            with self.terminal(*words, rows=size.lines, columns=size.columns) as terminal:
                return show_here(terminal)
        with self.terminal("--automatic", *words) as terminal:
            status = terminal.wait_exit(120)
            show_screen(terminal)
            return status

    def control(self, *words):
        return self.call("ostrelsimctl", *words)

    def call(self, program, *words):
        """Runs a program that needs no terminal; True where it ends well."""
        print("$", program, *words, flush=True)
        if program == "zsbtool":
            wait_until_built()
        return subprocess.run([BIN / program, *words], cwd=self.folder, check=False).returncode == 0


def show_here(terminal):
    """Shows a run on this terminal and passes the keys on. A last screen that nobody leaves is left
    after a while."""
    before = termios.tcgetattr(sys.stdin)
    tty.setraw(sys.stdin)
    try:
        shown, paused, alive = 0, None, True
        while alive:
            alive = terminal.pump(0.05)
            os.write(sys.stdout.fileno(), terminal.output[shown:])
            shown = len(terminal.output)
            if paused is None and "Press any key" in terminal.now().text:
                paused = time.monotonic()
            if select.select([sys.stdin], [], [], 0)[0]:
                terminal.child.send(os.read(sys.stdin.fileno(), 1024))
            elif paused is not None and time.monotonic() > paused + PAUSE:
                terminal.send(" ")
    finally:
        termios.tcsetattr(sys.stdin, termios.TCSADRAIN, before)
    return terminal.wait_exit()


def show_screen(terminal):
    width = 80
    print("+" + "-" * width + "+")
    for row in terminal.last_full().rows:
        print(f"|{row:{width}}|")
    print("+" + "-" * width + "+", flush=True)


def report_set(folder, planted):
    """Files, sizes and types of a saved set, read independently of the tool."""
    files = scanset.read_set(folder)
    for file in files:
        print(f"  {file.path.name}  {file.path.stat().st_size:>10} bytes  "
              f"{len(file.records):>5} blocks  {', '.join(file.problems) or 'sound'}")
    saved = collections.Counter(poolTypes.classify(block) for file in files
                                for _, block in file.records)
    print("  blocks of each type, saved of planted:")
    cells = [f"{name:>14} {saved[name]:>6} of {planted[name]:<6}" for name in poolTypes.NAMES]
    rows = (len(cells) + 2) // 3
    for row in range(rows):
        print("  " + " ".join(cells[row::rows]))
    return sum(saved.values())


def save(road, planted):
    say("A save: the pool's internal blocks go into numbered scan files",
        "the counts of the block types, the files in the last rows, and below what was saved of what "
        "was planted")
    (road.folder / "raw").mkdir()
    if road.show("-P", "raw", "save", POOL, road.device) != 0:
        return False
    return report_set(road.folder / "raw", planted) > 0


def save_with_bad_blocks(road):
    """Beside the other device: that of the service, which fails on demand."""
    say("A save of a disk with two bad blocks",
        "the read errors in row 4; the save ends well all the same, and the log knows the blocks")
    (road.folder / "failing").mkdir()
    with loopdev.loop(f"/_admin/Devices/{POOL}", read_only=True) as device:
        road.control("bad", POOL, "1000-1001", "read")
        if road.show("--automatic", "-P", "failing", "save", POOL, device) != 0:
            return False
    return road.control("bad", POOL, "none") and road.call("zsbtool", "bad-blocks")


def change_states(road):
    """A save under the pool lock: a change that may be refused is, a forced one ends the save."""
    say("A compressed save, while somebody wants to activate the pool",
        "the first change, which is refused, and the second, which is forced: the save ends with 20826 "
        "and lets the pool go")
    (road.folder / "packed").mkdir()
    words = ("--compress", "-P", "packed", "save", POOL, road.device)
    print("$ ostrelscan", *words, "&", flush=True)
    with road.terminal("--automatic", *words) as terminal:
        terminal.wait_for("C0000000.ZSB")
        road.control("state", POOL, "active")
        road.control("state", POOL, "active", "--forced")
        ended = terminal.wait_exit(60) == 1
        show_screen(terminal)
        print(terminal.now().text.strip())
    road.control("state", POOL, "maintenance")
    return ended


def check(road):
    say("Checks, of the good set and of the one that was ended",
        "the last lines: a restore asks none of this, so a check comes before each")
    good = road.call("zsbtool", "check", "raw")
    return good and not (road.service and road.call("zsbtool", "check", "packed"))


def show_map(road):
    say("A map: where the saved blocks lie in the pool", "what lies together, and what is scattered")
    return road.call("zsbtool", "map", "raw")


def restore(road):
    say("A restore: the set, put where a restore takes it, goes onto another device, block for block",
        "the type MSAP and the blocks of no known type, which are switched off")
    if not road.call("zsbtool", "prepare", "raw", "ready"):
        return False
    return road.show("--automatic", "--danger", "--validation-skip", "-P", "ready", "restore", POOL,
                     road.target) == 0


def compare(road):
    """By the companion, and then by a reader that shares nothing with it."""
    say("The restored device is compared with the set", "the number of blocks: none differs")
    if not road.call("zsbtool", "compare", "--as-restored", "ready", road.target):
        return False
    compared = kept = 0
    with open(road.target, "rb") as device:
        for number, block in scanset.set_records(road.folder / "ready", suffix="ZRB"):
            if poolTypes.classify(block) == "MSAP":
                kept += 1
                continue
            device.seek(number * len(block))
            if device.read(len(block)) != block:
                print(f"block {number} differs")
                return False
            compared += 1
    print(f"{compared} restored blocks compared, all equal; {kept} MSAP blocks were left alone, as "
          "every restore leaves them")
    return True


def put_into_maintenance(road):
    say("The pool is put into maintenance, as an administrator does before a save",
        "the state; without it a save is refused")
    return road.control("state", POOL, "maintenance")


def walk(road, planted):
    """The whole demonstration; True when every step went as it should."""
    steps = [(put_into_maintenance, True), (lambda road: save(road, planted), False),
             (save_with_bad_blocks, True), (change_states, True), (check, False),
             (show_map, False), (restore, False), (compare, False)]
    for number, step in enumerate(step for step, needs in steps if road.service or not needs):
        if number > 0:
            wait_for_key()
        if not step(road):
            return False
    return True


def run_with_service(folder, image, device, target):
    """Starts the stand-in service, which runs this program's inner half beside it."""
    environment = {**os.environ, "OSTRELSIM_SOCKET": f"{folder}/bus",
                   "LD_LIBRARY_PATH": str(ostrelscan.build_folder() / "lib")}
    say("The stand-in of the storage service starts")
    return subprocess.run(
        [BIN / "ostrelsim", "--private", "--pool", f"{POOL},-,active,{image}", "--",
         sys.executable, __file__, "--inside", folder, device, target],
        env=environment, check=False).returncode


def demonstrate(folder, plain):
    pool = pools.pool(size=SIZE, seed=7)
    images = [pool.copy_to(pathlib.Path(folder, "pool.img")),
              loopdev.sparse_image(pathlib.Path(folder, "target.img"), pool.size)]
    lacking = "it was not wanted" if plain else (
        loopdev.have_loop().why or loopdev.have_service().why)
    if lacking:
        print(f"Without block devices and service ({lacking}): image files, a preload library that "
              "answers for their size, and --bypass-ostrel.")
        return 0 if walk(Road(folder, *images, service=False), pool.types) else 1
    with loopdev.loop(images[0]) as device, loopdev.loop(images[1]) as target:
        return run_with_service(folder, images[0], device, target)


def main(arguments):
    for number in (signal.SIGTERM, signal.SIGHUP):  # they clean up as an interrupt does
        signal.signal(number, signal.default_int_handler)
    if arguments[:1] == ["--inside"]:
        road = Road(*arguments[1:], service=True)
        return 0 if walk(road, pools.pool(size=SIZE, seed=7).types) else 1
    if "--pause" in arguments:
        os.environ[PAUSED] = "1"
    with tempfile.TemporaryDirectory(prefix="ostrelscan-demo-") as folder, \
            contextlib.suppress(KeyboardInterrupt):
        status = demonstrate(folder, "--plain" in arguments)
        say("Done" if status == 0 else "Something went wrong")
        return status
    return 130


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
