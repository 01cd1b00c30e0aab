"""Drives ostrelsim from tests: starts it in a mount namespace of its own, so that several run side
by side and each has its own /_admin, and asks its control command."""

import contextlib
import json
import os
import re
import select
import signal
import subprocess
import tempfile
import time
from pathlib import Path

BUILD = Path(os.environ["OSTREL_BUILD"])
PYTHON = "/usr/bin/python3"
SOON = 30.0  # seconds: longer than anything here takes, however busy the machine
MODE_SWITCH = b'<virtualIO><datastream name="command"/></virtualIO>'

POOL_GUID = "01234567-89ab-0cde-8f-10-112233445566"
POOL_GUID_BYTES = bytes.fromhex("67452301ab89de0c8f10112233445566")
VOLUME_GUID = "fedcba98-7654-0321-80-01-aabbccddeeff"
VOLUME_GUID_BYTES = bytes.fromhex("98badcfe547621038001aabbccddeeff")


def pool_info(name):
    return (b'<ostrelRequest><pool><getPoolInfo> type="basic"><poolName>' + name.encode() +
            b"</poolName></getPoolInfo></pool></ostrelRequest>")


def volume_info(name):
    return (b'<ostrelRequest><volume><getVolumeInfo> type="basic"><volumeName>' + name.encode() +
            b"</volumeName></getVolumeInfo></volume></ostrelRequest>")


def preloaded():
    """What an interpreter that is not built with a sanitizer needs to load a library that is. Its
    own leaks are nobody's concern here."""
    runtime = os.environ.get("OSTREL_PRELOAD", "")
    return {"LD_PRELOAD": runtime, "ASAN_OPTIONS": "detect_leaks=0"} if runtime else {}


def wait_until(condition, seconds=SOON):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if condition():
            return True
        time.sleep(0.01)
    return bool(condition())


class Channel:
    """One open management file, driven by bare system calls."""

    def __init__(self, path, switch=True):
        self.descriptor = os.open(path, os.O_RDWR)
        if switch:
            assert os.pwrite(self.descriptor, MODE_SWITCH, 0) == len(MODE_SWITCH)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self.descriptor)

    def write(self, request, offset=0):
        return os.pwrite(self.descriptor, request, offset)

    def read(self, chunk=2048):
        reply = b""
        while True:
            piece = os.pread(self.descriptor, chunk, len(reply))
            reply += piece
            if len(piece) < chunk:
                return reply

    def ask(self, request):
        assert self.write(request) == len(request)
        return self.read()


class Simulation:
    """A running ostrelsim and the ways to it."""

    def __init__(self, *options, socket=None, private=True):
        self.folder = tempfile.TemporaryDirectory(prefix="ostrelsim-test-")
        self.socket = str(socket or Path(self.folder.name) / "socket")
        self.consumers = []
        self.errors = ""
        private_option = ["--private"] if private else []
        self.process = subprocess.Popen(
            [BUILD / "bin/ostrelsim", *private_option, "--socket", self.socket, *options],
            stderr=subprocess.PIPE, text=True)
        self.ready = self.process.stderr.readline()
        self.started = self.ready.startswith("ostrelsim: serving")

    def inside(self, path):
        """A path as the service's mount namespace has it."""
        return f"/proc/{self.process.pid}/root{path}"

    @property
    def manage(self):
        return self.inside("/_admin/Manage_OSTREL/manage.cmd")

    def channel(self, switch=True):
        return Channel(self.manage, switch)

    def run_inside(self, *command, **options):
        """Runs a command in the service's mount namespace."""
        return subprocess.run(["nsenter", "-m", "-t", str(self.process.pid), "--", *command],
                              env=self.environment(), **options)

    def environment(self):
        return {**os.environ, "OSTRELSIM_SOCKET": self.socket}

    def start_control(self, *words):
        return subprocess.Popen([BUILD / "bin/ostrelsimctl", *words], env=self.environment(),
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def control(self, *words, status=0):
        """What the control command prints; it must end with `status`."""
        done = subprocess.run([BUILD / "bin/ostrelsimctl", *words], env=self.environment(),
                              capture_output=True, text=True, timeout=60)
        assert done.returncode == status, (words, done)
        return done.stdout if status != 2 else done.stderr

    def listed(self, what):
        return [line for line in self.control("list").splitlines() if line.startswith(what)]

    def traced(self, what):
        lines = self.control("trace").splitlines()
        return [line[11:] for line in lines if line[11:].startswith(what + ":")]

    def consumer(self):
        self.consumers.append(Consumer(self.environment()))
        return self.consumers[-1]

    @contextlib.contextmanager
    def standing_still(self):
        """The service is stopped, every thread of it, and goes on afterwards. The signal returns
        before that has happened."""
        tasks = Path(f"/proc/{self.process.pid}/task")
        self.process.send_signal(signal.SIGSTOP)
        try:
            assert wait_until(lambda: all(
                (task / "stat").read_text().rpartition(")")[2].split()[0] == "T"
                for task in tasks.iterdir()))
            yield
        finally:
            self.process.send_signal(signal.SIGCONT)

    def kill(self):
        self.process.kill()
        self.process.wait()

    def stop(self):
        """Ends everything; the exit status of the service."""
        if self.process.stderr.closed:
            return self.process.returncode
        for consumer in self.consumers:
            consumer.kill()
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        status = self.process.wait(timeout=SOON)
        self.errors = self.process.stderr.read()
        self.process.stderr.close()
        self.folder.cleanup()
        return status


class Consumer:
    """A process with the bus library, told by lines what to do."""

    def __init__(self, environment):
        script = Path(__file__).with_name("consumer.py")
        self.process = subprocess.Popen(
            [PYTHON, str(script), str(BUILD / "lib/libhebus.so")],
            env={**environment, **preloaded()},
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.events = []
        self.pending = b""

    def next_line(self, seconds=SOON):
        end = time.monotonic() + seconds
        while b"\n" not in self.pending:
            left = max(0.0, end - time.monotonic())
            ready, _, _ = select.select([self.process.stdout], [], [], left)
            piece = os.read(self.process.stdout.fileno(), 65536) if ready else b""
            assert piece, "the consumer says nothing"
            self.pending += piece
        line, self.pending = self.pending.split(b"\n", 1)
        return json.loads(line)

    def do(self, **command):
        """One command and its result; events that come first are kept."""
        self.process.stdin.write(json.dumps(command).encode() + b"\n")
        self.process.stdin.flush()
        while True:
            line = self.next_line()
            if "event" not in line:
                return line
            self.events.append(line)

    def register(self, event="OSTREL.ChangePoolState.Enter", **more):
        return self.do(do="register", name=event, **more)

    def next_event(self, seconds=SOON):
        if self.events:
            return self.events.pop(0)
        line = self.next_line(seconds)
        assert "event" in line, line
        return line

    def is_silent(self, seconds=0.3):
        ready, _, _ = select.select([self.process.stdout], [], [], seconds)
        return not self.events and not self.pending and not ready

    def end(self, seconds=10.0):
        self.process.stdin.close()
        return self.process.wait(timeout=seconds)

    def kill(self):
        self.process.kill()
        self.process.wait()
        for stream in (self.process.stdin, self.process.stdout):
            try:
                stream.close()
            except BrokenPipeError:
                pass


def field(reply, name):
    """The text of an element, or the value attribute of an empty one; None when it is not there."""
    text = re.search(f"<{name}>([^<]*)</{name}>".encode(), reply)
    value = re.search(f'<{name} value="([^"]*)"/>'.encode(), reply)
    found = text or value
    return found.group(1).decode() if found else None
