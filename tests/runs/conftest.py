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


def _need_service():
    _need(loopdev.have_service())
    _need(loopdev.have_loop())
    if not (ostrelscan.build_folder() / "bin" / "ostrelsim").exists():
        pytest.skip("the stand-in of the storage service was not built")


@pytest.fixture
def serve():
    """servedrun.serving, where it can be had; the services end with the test."""
    _need_service()
    import servedrun  # the other tests do without a service
    with contextlib.ExitStack() as running:
        yield lambda *options, **more: running.enter_context(
            servedrun.serving(*options, **more))


@pytest.fixture(scope="session")
def sample():
    """The pool of most runs: small, and saved in one file."""
    return pools.pool(size="16M")


@pytest.fixture(scope="session")
def device(sample, tmp_path_factory):
    """A device with the sample pool that nobody can write to."""
    _need_service()
    with saving.attached(sample, tmp_path_factory.mktemp("device")) as path:
        yield path


@pytest.fixture
def slow_device(sample, tmp_path):
    """Makes (device, disk) with the sample pool on a disk that stands still at a block."""
    _need_service()
    with contextlib.ExitStack() as devices:
        yield lambda block, image=sample.path, folder="disk": devices.enter_context(
            loopdev.fault_loop(image, tmp_path / folder, f"pause={block}"))


@pytest.fixture
def hold_save(serve, slow_device, tmp_path):
    """Starts a save and lets it stand still in the middle of a scan file: (service, run, disk)."""
    with contextlib.ExitStack() as end:
        def start(**more):
            service = serve()
            device, disk = slow_device("2000")
            run = end.enter_context(service.save(tmp_path, device, **more))
            end.callback(disk.go_on)
            disk.wait_for_pause()
            run.wait_until_stuck()
            return service, run, disk
        yield start


@pytest.fixture
def held_save(hold_save):
    """A save that stands still in the middle of a scan file: (service, run, disk)."""
    return hold_save()


def pytest_terminal_summary(terminalreporter):
    """Says how many tests were skipped for each reason."""
    reports = terminalreporter.stats.get("skipped", [])
    reasons = collections.Counter(report.longrepr[2] for report in reports)
    for reason, count in reasons.items():
        terminalreporter.write_line(f"{count} skipped - {reason.removeprefix('Skipped: ')}")
