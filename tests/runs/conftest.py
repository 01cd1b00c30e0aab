"""Puts tests/support on the path and hands its parts to the tests as fixtures."""

import collections
import contextlib
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))

import loopdev  # noqa: E402
import ostrelscan  # noqa: E402
import pools  # noqa: E402
import saving  # noqa: E402

GOLDEN = pathlib.Path(__file__).resolve().parent / "golden"


def pytest_addoption(parser):
    parser.addoption("--rewrite-golden", action="store_true",
                     help="write what the runs show into golden/, to be reviewed as code")


def _need(answer):
    if not answer:
        pytest.skip(answer.why)


@pytest.fixture(scope="session")
def build():
    """The build folder under test."""
    return ostrelscan.build_folder()


@pytest.fixture(scope="session")
def pool():
    """pools.pool: makes or finds a sample pool."""
    return pools.pool


@pytest.fixture
def loop():
    """loopdev.loop, where loop devices can be had."""
    _need(loopdev.have_loop())
    return loopdev.loop


@pytest.fixture
def pool_device(loop, tmp_path):
    """Attaches a sample pool: `with pool_device(pool) as device`."""
    @contextlib.contextmanager
    def attach(pool):
        with saving.attached(pool, tmp_path) as device:
            yield device
    return attach


@pytest.fixture
def tmpfs(tmp_path):
    """Mounts a small file system, where that can be had: `with tmpfs("size=1M") as folder`."""
    @contextlib.contextmanager
    def mount(options):
        with contextlib.ExitStack() as stack:
            try:
                folder = stack.enter_context(saving.tmpfs(tmp_path / "tmpfs", options))
            except OSError as error:
                pytest.skip(f"no tmpfs: {error}")
            yield folder
    return mount


@pytest.fixture
def golden(request):
    """Compares a text with a file of golden/, or writes that file with --rewrite-golden."""
    def compare(name, text):
        path = GOLDEN / name
        if request.config.getoption("--rewrite-golden"):
            path.parent.mkdir(exist_ok=True)
            path.write_text(text, encoding="utf-8")
        assert text == path.read_text(encoding="utf-8")
    return compare


@pytest.fixture
def fault_disk():
    """loopdev.fault_disk, where FUSE can be had."""
    _need(loopdev.have_fuse())
    return loopdev.fault_disk


@pytest.fixture
def fault_loop():
    """loopdev.fault_loop, where both can be had."""
    _need(loopdev.have_fuse())
    _need(loopdev.have_loop())
    return loopdev.fault_loop


def pytest_terminal_summary(terminalreporter):
    """Says how many tests were skipped for each reason."""
    reports = terminalreporter.stats.get("skipped", [])
    reasons = collections.Counter(report.longrepr[2] for report in reports)
    for reason, count in reasons.items():
        terminalreporter.write_line(f"{count} skipped - {reason.removeprefix('Skipped: ')}")
