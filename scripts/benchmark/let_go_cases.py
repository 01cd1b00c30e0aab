"""How long a forced change of the pool's state waits for a run: from its event to the answer, by the
service's clock."""

import contextlib
import pathlib
import random
import re
import shutil
import sys
import tempfile
import time

import pool_samples
import slow_cases
from case import Case

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "support"))

import loopdev  # noqa: E402

BEGIN = ("let go",)    # how the names of these cases begin
EACH = 5    # how often in a round
SLOW = slow_cases.Disk("1 ms", "latency=1000", pool_samples.SMALL >> 20, False, None)


class Failed(RuntimeError):
    """A run let go otherwise than it was asked to."""


def started(service, folder, device, work):
    """The run, its outputs in `folder`."""
    if work == "restore":
        return service.run(folder, "--danger", "-P", folder.parent / "set", "restore", "DATA", device)
    return service.save(folder, device, *(["-c"] if work == "save -c" else []))


def answer_seconds(service, folder, device, work):
    """How long one change waited, or nothing where the run was over before it came."""
    import servedrun  # needs a build, as the cases above do not
    service.control("state", servedrun.POOL, "maintenance")
    loopdev.drop_caches(device)
    with started(service, folder, device, work) as run:
        service.registered()
        begin, pause = time.monotonic(), random.uniform(0.1, 0.4)
        while time.monotonic() - begin < pause:
            run.terminal.pump()
        change = service.change("active", "--forced")
        status, words = servedrun.finished(change)
        told = re.search(r"answered 0x0\n.*now active after (\d+) ms", words, re.DOTALL)
        left = run.wait_exit()
    if status != 0 or (told and left != 1):
        raise Failed(f"{work} of {device}: {words} and status {left}")
    return int(told[1]) / 1000 if told else None


def measure(service, folder, device, work):
    """{measure: [(value, None)]}"""
    taken = []
    for _ in range(3 * EACH):    # some runs are over before the change comes
        outputs = folder / "outputs"
        shutil.rmtree(outputs, ignore_errors=True)
        outputs.mkdir()
        seconds = answer_seconds(service, outputs, device, work)
        taken += [] if seconds is None else [(seconds, None)]
        if len(taken) == EACH:
            break
    else:
        raise Failed(f"{work} of {device} is over too soon")
    return {"p50": taken, "p99": taken}


def why_not():
    return slow_cases.why_not() or ("" if loopdev.have_service() else "the stand-in of the service")


@contextlib.contextmanager
def all_cases(tool, mkpool, say):
    import servedrun
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(
            tempfile.TemporaryDirectory(dir=pool_samples.MEMORY)))
        say(f"bench: making a pool and a set in {folder}")
        image = pool_samples.make_image(folder, mkpool, "pool", pool_samples.SMALL, 0.5)
        pool_samples.save_all(tool, image, folder / "set")
        quick = stack.enter_context(loopdev.loop(image))
        slow = stack.enter_context(slow_cases.attached(SLOW, image, folder))
        service = stack.enter_context(servedrun.serving())
        yield [Case(f"let go {name} {work}", goals={"p50": None, "p99": None},
                    take=lambda device=device, work=work: measure(service, folder, device, work))
               for name, device in (("quick", quick), ("slow", slow))
               for work in ("save", "save -c", "restore")]
