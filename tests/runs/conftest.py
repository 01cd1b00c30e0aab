"""Puts tests/support on the path and hands its parts to the tests as fixtures."""

import collections
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))

import loopdev  # noqa: E402
import ostrelscan  # noqa: E402
import pools  # noqa: E402


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
