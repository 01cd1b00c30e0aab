"""Block devices for tests: loop devices over images, and over images with bad blocks."""

import contextlib
import functools
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time
import typing

import ostrelscan

BLOCK_BYTES = 4096


class Answer(typing.NamedTuple):
    """Whether something can be had, and if not, why."""

    ok: bool
    why: str = ""

    def __bool__(self):
        return self.ok


def _wait_until(happened, seconds=10.0):
    until = time.monotonic() + seconds
    while not happened():
        if time.monotonic() > until:
            return False
        time.sleep(0.02)
    return True


def _attach(image, options):
    """Finding a free device and taking it are two steps: another worker can come between."""
    for attempt in range(20):
        done = subprocess.run(["losetup", "-f", "--show", *options, str(image)],
                              capture_output=True, text=True, check=False)
        if done.returncode == 0:
            return done.stdout.strip()
        time.sleep(0.05 * (attempt + 1))
    raise OSError(f"losetup: {done.stderr.strip()}")


def _backing_file(device):
    path = pathlib.Path("/sys/block", pathlib.Path(device).name, "loop/backing_file")
    with contextlib.suppress(OSError):
        return path.read_text(encoding="utf-8").rstrip("\n")
    return None


def _detach(device, backing):
    """The device may be another worker's as soon as it is free, so it is detached only while the
    image is still behind it, and once: the kernel waits for the last user by itself."""
    told = False
    def gone():
        return _backing_file(device) != backing
    def detached():
        nonlocal told
        if not told and not gone():
            done = subprocess.run(["losetup", "-d", device], capture_output=True, check=False)
            told = done.returncode == 0
        return gone()
    if not _wait_until(detached):
        raise OSError(f"{device} is still in use")


@contextlib.contextmanager
def loop(image, *, read_only=False, direct=False, size=0):
    """The path of a loop device over the image, or its first `size` bytes. It keeps nothing of it in a
    cache of its own where that is said, and asks for many things at once."""
    options = [*(["--read-only"] if read_only else []), *(["--direct-io=on"] if direct else []),
               *(["--sizelimit", str(size)] if size else [])]
    device = _attach(image, options)
    backing = _backing_file(device)
    try:
        yield device
    finally:
        _detach(device, backing)


@functools.lru_cache
def have_loop():
    """Whether loop devices can be attached here."""
    if os.geteuid() != 0:
        return Answer(False, "loop devices need root")
    if not shutil.which("losetup"):
        return Answer(False, "losetup is not installed")
    with tempfile.NamedTemporaryFile() as image:
        image.truncate(BLOCK_BYTES)
        try:
            with loop(image.name):
                return Answer(True)
        except OSError as error:
            return Answer(False, f"no loop devices: {error}")


def have_administration():
    """Whether this process may mount and switch devices: CAP_SYS_ADMIN, capability 21."""
    status = pathlib.Path("/proc/self/status").read_text(encoding="ascii")
    effective = next(line for line in status.splitlines() if line.startswith("CapEff:"))
    return Answer(bool(int(effective.split()[1], 16) >> 21 & 1), "CAP_SYS_ADMIN is not there")


@functools.lru_cache
def have_fuse():
    """Whether a FUSE file system can be mounted here."""
    try:
        os.close(os.open("/dev/fuse", os.O_RDWR | os.O_CLOEXEC))
    except OSError as error:
        return Answer(False, f"no FUSE: {error}")
    if not have_administration() and (os.geteuid() == 0 or not shutil.which("fusermount3")):
        return Answer(False, "no FUSE: mounting is not allowed here")
    return Answer(True)


@functools.lru_cache
def have_private_mounts():
    """Whether a mount namespace of its own can be had: not in a chroot, whose "/" is no mount point,
    and not without the right to mount."""
    done = subprocess.run(["unshare", "--mount", "true"], capture_output=True, text=True,
                          check=False)
    if done.returncode == 0:
        return Answer(True)
    reason = done.stderr.strip().rpartition(": ")[2]
    return Answer(False, f"no mount namespace of its own: {reason}")


def have_service():
    """Whether the stand-in of the storage service can run here, in a mount namespace of its own."""
    return have_private_mounts() and have_fuse()


def sparse_image(path, size):
    """An image of `size` bytes that is one hole."""
    with open(path, "wb") as image:
        image.truncate(size)
    return pathlib.Path(path)


class FaultDisk:
    """A mounted faultdisk: `disk` is the image, but for the faults set by command."""

    def __init__(self, mount_point, process):
        self._process = process
        self.disk = mount_point / "disk"
        self._control = mount_point / "control"

    def command(self, line):
        """As in the control file: "badread 17,20-24", "badwrite 20", "enospc 30", "pause 3000",
        "readonly", "gone", "clear"."""
        self._control.write_text(line + "\n", encoding="ascii")

    def wait_for_pause(self, seconds=30.0):
        """Waits until a request has come to a paused block: the disk stands still then, and its
        control file with it."""
        stat = pathlib.Path(f"/proc/{self._process.pid}/stat")
        def stopped():
            return stat.read_text(encoding="ascii").rpartition(")")[2].split()[0] == "T"
        if not _wait_until(stopped, seconds):
            raise AssertionError("nobody came to the paused block")

    def go_on(self):
        """Ends a pause; harmless when there is none."""
        self._process.send_signal(signal.SIGCONT)

    def faults(self):
        """The faults in force, as command lines."""
        return [line for line in self._lines() if " failed " not in line]

    def counts(self):
        """{"reads": (requests, failed), "writes": (requests, failed)}"""
        words = [line.split() for line in self._lines() if " failed " in line]
        return {word[0]: (int(word[1]), int(word[3])) for word in words}

    def _lines(self):
        return self._control.read_text(encoding="ascii").splitlines()


def _stop(process, mount_point):
    process.terminate()
    process.send_signal(signal.SIGCONT)
    with contextlib.suppress(subprocess.TimeoutExpired):
        process.wait(10)
    if os.path.ismount(mount_point):
        subprocess.run(["umount", "--lazy", str(mount_point)], check=False)
    if process.poll() is None:
        process.kill()
        process.wait()


@contextlib.contextmanager
def fault_disk(image, mount_point, *faults):
    """Mounts faultdisk over the image on a new folder `mount_point`; faults as
    "badread=17,20-24". Yields a FaultDisk."""
    mount_point = pathlib.Path(mount_point)
    mount_point.mkdir()
    with subprocess.Popen([ostrelscan.helper("faultdisk"), image, mount_point, *faults],
                          stdin=subprocess.DEVNULL) as process:
        try:
            _wait_until(lambda: os.path.ismount(mount_point) or process.poll() is not None)
            if not os.path.ismount(mount_point):
                raise OSError(f"faultdisk does not mount (exit status {process.poll()})")
            yield FaultDisk(mount_point, process)
        finally:
            _stop(process, mount_point)


def _take_large_requests(device):
    """What somebody has told a loop device of the size of requests outlives its image."""
    queue = pathlib.Path("/sys/block", pathlib.Path(device).name, "queue")
    with contextlib.suppress(OSError):  # not everywhere may that be told
        most = (queue / "max_hw_sectors_kb").read_text(encoding="ascii")
        (queue / "max_sectors_kb").write_text(most, encoding="ascii")


@contextlib.contextmanager
def fault_loop(image, mount_point, *faults):
    """As fault_disk, with a loop device over the disk: yields (device path, FaultDisk). What the
    kernel asks of the device, the disk is asked for, as a real one would be, and nothing else."""
    with fault_disk(image, mount_point, *faults) as disk, \
            loop(disk.disk, direct=True) as device:
        _take_large_requests(device)
        try:
            yield device, disk
        finally:
            disk.go_on()


def drop_caches(*paths):
    """Forgets what the kernel holds of these devices and files, so that reads go down again."""
    for path in paths:
        with open(path, "rb") as file:
            os.fsync(file.fileno())
            os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)
