"""The pools that saves and restores are measured on: block devices over images in memory, and the sets
that a save of them must give, written by the tests' own writer."""

import contextlib
import dataclasses
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "support"))

import loopdev  # noqa: E402
import saving  # noqa: E402
import scanset  # noqa: E402

MEMORY = pathlib.Path("/dev/shm")
SMALL, LARGE = 1 << 30, 4 << 30
ROOM = 6 << 30    # what the pools, their sets and the outputs take at most


@dataclasses.dataclass(frozen=True)
class Pool:
    device: str
    target: str              # a device of the same size
    raw: pathlib.Path        # the folder of the set, to be restored
    compressed: pathlib.Path
    records: pathlib.Path    # the set's records alone
    gzip: pathlib.Path       # the same, compressed


def why_not():
    """Why there can be no such pools here; empty when there can."""
    if not os.access(MEMORY, os.W_OK) or shutil.disk_usage(MEMORY).free < ROOM:
        return f"{ROOM >> 30} GiB of room in {MEMORY}"
    return "" if loopdev.have_loop() else "a loop device"


def make_image(folder, mkpool, name, size, internal):
    image = folder / f"{name}.img"
    subprocess.run([mkpool, "--size", str(size), "--internal", str(internal), image], check=True,
                   stdout=subprocess.DEVNULL)
    return image


def save_all(tool, image, folder):
    """The set that a save of the image makes, ready to be restored."""
    folder.mkdir()
    with loopdev.loop(image, read_only=True) as device:
        subprocess.run([tool, "--bypass-ostrel", "--automatic", "save", "DATA", device], cwd=folder,
                       env={**os.environ, "TERM": "xterm"}, stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, check=True)
    for path in folder.glob("*.ZSB"):
        path.rename(path.with_suffix(".ZRB"))


def make_pool(stack, folder, image):
    """The pool on an image, with all that belongs to it."""
    inside = folder / image.stem
    records = saving.expected(image)
    for name, compress in (("raw", False), ("compressed", True)):
        (inside / name).mkdir(parents=True)
        scanset.write_set(inside / name, records, compress=compress)
    (inside / "records").write_bytes(scanset.pack_records(records))
    with open(inside / "records.gz", "wb") as packed:
        subprocess.run(["gzip", "-6", "-c", inside / "records"], stdout=packed, check=True)
    target = loopdev.sparse_image(inside / "target.img", image.stat().st_size)
    return Pool(stack.enter_context(loopdev.loop(image)), stack.enter_context(loopdev.loop(target)),
                inside / "raw", inside / "compressed", inside / "records", inside / "records.gz")


@contextlib.contextmanager
def attached(mkpool, say):
    """{name: Pool} of 1 GiB with 5 and 50 % internal blocks, the device of 4 GiB, and a folder in
    memory for what is written; nothing is left behind."""
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(dir=MEMORY)))
        say(f"bench: making pools in {folder}")
        pools = {name: make_pool(stack, folder, make_image(folder, mkpool, name, SMALL, internal))
                 for name, internal in (("5 %", 0.05), ("50 %", 0.5))}
        large = stack.enter_context(loopdev.loop(make_image(folder, mkpool, "large", LARGE, 0.05)))
        (folder / "outputs").mkdir()
        yield pools, large, folder / "outputs"
