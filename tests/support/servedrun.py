"""Runs the tool beside the stand-in of the storage service: under a terminal of its own, in the
mount namespace of the service, so that several pairs run side by side."""

import contextlib
import os
import pathlib
import re
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "sim"))

import ostrelscan
import screen
from simulation import MODE_SWITCH, Simulation, wait_until

POOL = "DATA"
POOL_GUID = "01234567-89ab-0cde-8f-10-112233445566"
MANAGE = "/_admin/Manage_OSTREL/manage.cmd"
POOL_STATE = "OSTREL.ChangePoolState.Enter"
MESSAGE_ROW = 19
ZLIB_WARNING = "warning: different zlib version"
# One that fits every message, so that none is broken over two rows.
COLUMNS = 160

OPEN_FAILURE = f'util/common/ostrelVFS[140] Could not open "{MANAGE}" because of '
READ_FAILURE = f'util/common/ostrelVFS[268] Could not read from "{MANAGE}" because of '
WRITE_RESULT = f'util/common/ostrelVFS[291] Could not read from "{MANAGE}" because of '
HANDLER = "HEBC_CPSE_Handler --"


def handler_line(text):
    """A pattern for a line of the pool-state handler."""
    return rf"util/common/heb\[\d+\] {HANDLER} {re.escape(text)}"


VETOED = handler_line("denyed CPS request because VOLMODE_USER_ABORTABLE present.")
ACCEPTED = handler_line("accepted CPS request because VOLMODE_USER_ABORTABLE not present.")
EARLY = handler_line("early event.")


def pool_info_request(name=POOL):
    return (f'<ostrelRequest><pool><getPoolInfo> type="basic"><poolName>{name}</poolName>'
            "</getPoolInfo></pool></ostrelRequest>")


def pool_info_reply(state="maintenance", guid=POOL_GUID, name=POOL):
    return ('<ostrelReply><result value="0"/><pool><getPoolInfo><result value="0"/><basicInfo>'
            f"<poolName>{name}</poolName><poolState>{state}</poolState>"
            f"<poolGUID>{guid}</poolGUID></basicInfo></getPoolInfo></pool></ostrelReply>")


def sanitizer_options():
    """A report of a sanitizer ends the tool with a status that it has not of itself."""
    ours = {"TSAN_OPTIONS": "halt_on_error=1", "ASAN_OPTIONS": "exitcode=66",
            "UBSAN_OPTIONS": "exitcode=66"}
    return {name: f"{os.environ.get(name, '')}:{options}".lstrip(":")
            for name, options in ours.items()}


class ToolRun:
    """One run of the tool, `--automatic`; its log stands in `folder`. A context manager that ends
    the tool."""

    def __init__(self, service, folder, *words, env=None):
        self.folder = pathlib.Path(folder)
        self._known = len(self.log)
        program = ["nsenter", "-m", "-t", str(service.process.pid), f"--wdns={folder}", "--"]
        self.terminal = screen.Terminal(
            [*program, ostrelscan.tool(), "--automatic", *words], columns=COLUMNS, cwd=folder,
            env={"OSTRELSIM_SOCKET": service.socket,
                 "LD_LIBRARY_PATH": str(ostrelscan.build_folder() / "lib"),
                 **sanitizer_options(), **(env or {})})
        self.pid = self.terminal.child.pid
        self.status = None

    def __enter__(self):
        self.terminal.__enter__()
        return self

    def __exit__(self, *failure):
        self.terminal.__exit__(*failure)

    @property
    def log(self):
        path = self.folder / ostrelscan.LOG_NAME
        return path.read_text(encoding="utf-8") if path.exists() else ""

    @property
    def body(self):
        """The log's lines of this run behind its header, without the time stamps and without what
        depends on the zlib of this machine."""
        (run,) = ostrelscan.split_log(self.log[self._known:])
        assert run.closed
        return [line for line in run.body
                if not line.startswith("<CurrentTime ") and line != ZLIB_WARNING]

    @property
    def lines(self):
        """The log's lines of this run so far."""
        return self.log[self._known:].splitlines()

    def count(self, pattern):
        return sum(re.fullmatch(pattern, line) is not None for line in self.lines)

    def wait_for_line(self, pattern, seconds=30.0, times=1):
        assert wait_until(lambda: self._pumped() and self.count(pattern) >= times, seconds), (
            pattern, self.lines)

    def _pumped(self):
        self.terminal.pump()
        return True

    def wait_until_stuck(self, seconds=30.0):
        """Waits until a thread of the tool waits for its disk, again and again."""
        looks = [0]
        def stuck():
            looks[0] = looks[0] + 1 if self._pumped() and "D" in self._thread_states() else 0
            return looks[0] >= 10
        assert wait_until(stuck, seconds), self._thread_states()

    def _thread_states(self):
        tasks = pathlib.Path(f"/proc/{self.pid}/task").glob("*/stat")
        return [task.read_text(encoding="ascii").rpartition(")")[2].split()[0] for task in tasks]

    def wait_exit(self, seconds=60.0):
        """The exit status."""
        self.status = self.terminal.wait_exit(seconds)
        output = self.terminal.output.decode(errors="replace")
        assert "Sanitizer" not in output and "runtime error" not in output, output
        return self.status

    @property
    def message(self):
        """What stands in the row of the pass's message when the screen is left."""
        return self.terminal.last_full().rows[MESSAGE_ROW].rstrip()

    @property
    def last_words(self):
        """What stands on the terminal behind the screen."""
        return self.terminal.now().text.strip()

    def failed_with(self, status):
        return self.last_words == (
            f"Scan failed (see ostrelscan.log for more details): {status}")


class Service(Simulation):
    """The stand-in with the pool DATA, and what its trace says of the tool."""

    def __init__(self, state="maintenance", *options, **more):
        pool = ["--pool", f"{POOL},{POOL_GUID},{state}"] if state else []
        super().__init__(*pool, *options, **more)
        assert self.started, self.ready

    def run(self, folder, *words, env=None):
        return ToolRun(self, folder, *words, env=env)

    def save(self, folder, device, *options, pool=POOL, env=None):
        return self.run(folder, *options, "save", pool, device, env=env)

    def restore(self, folder, device, *options, pool=POOL, env=None):
        return self.run(folder, "--danger", *options, "restore", pool, device, env=env)

    def change(self, state, *options, pool=POOL):
        """Starts a change of the pool's state, which may have to wait."""
        return self.start_control("state", pool, state, *options)

    def event(self, *options):
        """Starts the delivery of an event about the pool; the last of an option counts."""
        return self.start_control("event", POOL_STATE, "--guid", POOL_GUID, *options)

    def pool_state(self, pool=POOL):
        return self.listed(f"pool {pool} ")[0].split()[2]

    def registered(self, count=1):
        """Waits until so many registrations are there."""
        return wait_until(lambda: len(self.listed("registration")) == count, 30)

    def answers_slowly(self):
        """Waits until the delayed reply has been asked for, so that no fault waits any more."""
        return wait_until(lambda: not self.listed("fault"), 30)

    def holds_nothing(self):
        """Whether no registration and no management file is open; the kernel tells the service of a
        close, and of a process's end, a moment later."""
        return wait_until(
            lambda: not self.listed("registration") and not self.listed("open management"))

    def exchange_kinds(self):
        """The kinds of the trace's lines, in order, but for injected faults. A close counts when
        the tool makes it ("flush"), not when the kernel has done with it."""
        kinds = [line[11:].split(":")[0] for line in self.control("trace").splitlines()]
        return [kind.replace("flush", "close") for kind in kinds if kind not in ("fault", "close")]

    def spoken(self, kind):
        """The texts that came through the management file."""
        return [line.split(" ", 6)[6] for line in self.traced(kind)]

    def seconds_of(self, kind):
        """When each trace line of the kind was written, by the service's clock."""
        return [float(line[:10]) for line in self.control("trace").splitlines()
                if line[11:].startswith(kind + ":")]

    def answer_delay(self):
        """Seconds from the end of the registration to the last answer; below 0 when that came first."""
        return self.seconds_of("answer")[-1] - self.seconds_of("unregister")[-1]

    def answered_at_the_unlock(self):
        """Whether the last change that was held was answered when the pool was let go. Unlocking
        lets the handler answer and then unregisters, so either may come first; the bound is wide,
        since a busy machine adds to it."""
        return abs(self.answer_delay()) < 5

    def one_file_at_a_time(self):
        """Whether a management file was opened only after the one before was closed."""
        files = [kind for kind in self.exchange_kinds() if kind in ("open", "close")]
        return files == ["open", "close"] * (len(files) // 2)


def finished(command, seconds=20.0):
    """Exit status and words of a control command that was started."""
    out, errors = command.communicate(timeout=seconds)
    return command.returncode, out + errors


# What one query and a whole successful run look like in the trace.
QUERY = ["open", "switch", "request", "reply", "close"]
HELD_RUN = [*QUERY, "register", *QUERY, "unregister"]
SWITCH_TEXT = MODE_SWITCH.decode()


@contextlib.contextmanager
def serving(state="maintenance", *options, **more):
    """A running Service, which must end with status 0 and without a word unless it was killed."""
    service = Service(state, *options, **more)
    try:
        yield service
    finally:
        killed = service.process.poll() == -9
        status = service.stop()
        if killed:
            _tidy_behind_the_killed()
    assert killed or (status, service.errors) == (0, ""), (status, service.errors)


def _tidy_behind_the_killed():
    """The next service takes over the mount point of one that was killed, and removes it."""
    Simulation().stop()


def options_of(device, compress=False, pool=POOL):
    return ["<Options>", "<Path>./</Path>", f"<DO_DeviceName>{device}</DO_DeviceName>",
            f"<PoolName>{pool}</PoolName>", f"<Compress>{int(compress)}</Compress>",
            "<Sectors>1</Sectors>", "<Start>0</Start>", "<End>0</End>", "</Options>", ""]


def refused_save_log(device, blocks, reason, channel=(), pool=POOL):
    """The log of a save that cannot hold its pool."""
    message = f"Could not lock pool into MAINTENANCE state:  {reason}"
    return [*options_of(device, pool=pool),
            "In RunDumpMain(start)", f"Blocks in pool is {blocks}",
            "util/ostrelscan/scanEngine[470]", *channel, message, "util/ostrelscan/scanEngine[505]",
            "UI - 0 Dumped  0", "Done ", "", "Current Scan File History:", "",
            "DumpScanHistory Done ", f"util/ostrelscan/scanUI[497] {message}",
            "util/ostrelscan/scanUI[506]Status is 1", "deleting the UI_ScreenID object"]


def refused_restore_log(reason, channel=(), pool=POOL):
    """The log of a restore that cannot hold its pool."""
    message = f"Pool state issue:  {reason}"
    return ["<Options>", "<Path>./</Path>", f"<PoolName>{pool}</PoolName>", "<Start>0</Start>",
            "<End>0</End>", "</Options>", "", "In RunRestoreMain(start)",
            "util/ostrelscan/scanEngine[738]", *channel, message, "util/ostrelscan/scanEngine[774]",
            "Done ", "", "Current Scan File History:", "", "DumpScanHistory Done ",
            f"util/ostrelscan/scanUI[727] {message}", "deleting the UI_ScreenID object"]


def history(body):
    """The lines of the scan-file history, each split at its tabs: name, status, CRC, blocks
    expected, blocks there."""
    start = body.index("Current Scan File History:") + 1
    return [line.split("\t") for line in body[start:body.index("DumpScanHistory Done ")] if line]


def elapsed(since):
    return time.monotonic() - since
