"""Puts tests/support on the path and hands its parts to the tests as fixtures."""

import dataclasses
import os
import pathlib
import shutil
import sys
import tempfile

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))

import loopdev  # noqa: E402
import pools  # noqa: E402
import zsbtool  # noqa: E402

GOLDEN = pathlib.Path(__file__).resolve().parent / "golden"


@pytest.fixture(scope="session")
def pool():
    """pools.pool: makes or finds a sample pool."""
    return pools.pool


@pytest.fixture
def fault_loop():
    """loopdev.fault_loop, where FUSE and loop devices can be had."""
    for answer in (loopdev.have_fuse(), loopdev.have_loop()):
        if not answer:
            pytest.skip(answer.why)
    return loopdev.fault_loop


@dataclasses.dataclass
class Somebody:
    """A user without rights of his own, and a folder that he may read."""

    folder: pathlib.Path
    how: dict  # for zsbtool.run


@pytest.fixture
def somebody():
    """Root runs the program as somebody else, and anybody else as himself."""
    if os.geteuid() == 0 and not shutil.which("setpriv"):
        pytest.skip("setpriv is not installed")
    before = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        yield Somebody(pathlib.Path(folder), {"before": before if os.geteuid() == 0 else ()})


@pytest.fixture
def small_disk():
    """zsbtool.on_small_disk, where file systems can be mounted."""
    if not (answer := loopdev.have_private_mounts()):
        pytest.skip(answer.why)
    return zsbtool.on_small_disk


@pytest.fixture
def golden():
    """Compares a text with a file of golden/; with REWRITE_GOLDEN set in the environment it writes
    that file, to be reviewed as code."""
    def compare(name, text):
        path = GOLDEN / name
        if os.environ.get("REWRITE_GOLDEN"):
            path.parent.mkdir(exist_ok=True)
            path.write_text(text, encoding="utf-8")
        assert text == path.read_text(encoding="utf-8")
    return compare
