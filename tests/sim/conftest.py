import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))
sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "support"))

import loopdev  # noqa: E402
from simulation import POOL_GUID, VOLUME_GUID, Simulation  # noqa: E402


def pytest_collection_modifyitems(items):
    answer = loopdev.have_service()
    if not answer:
        for item in items:
            if Path(__file__).parent in item.path.parents:  # others may be collected in one run
                item.add_marker(pytest.mark.skip(reason=answer.why))


@pytest.fixture
def start():
    """Starts services; each must end with status 0 and without a word unless it was killed."""
    running = []

    def start_one(*options, **more):
        simulation = Simulation(*options, **more)
        running.append(simulation)
        assert simulation.started, simulation.ready
        return simulation

    yield start_one
    for simulation in running:
        killed = simulation.process.poll() == -9
        status = simulation.stop()
        assert killed or (status == 0 and simulation.errors == ""), (status, simulation.errors)


@pytest.fixture
def sim(start):
    """A service with the pool P in maintenance and the volume V."""
    return start("--pool", f"P,{POOL_GUID},maintenance", "--volume", f"V,{VOLUME_GUID},active")
