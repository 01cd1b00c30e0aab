"""Runs the cases in turns, prints their table, and ends with 1 where a goal is missed."""

import argparse
import contextlib
import os
import pathlib
import shutil
import signal
import sys
import tempfile

import cases
import kept
import let_go_cases
import measuring
import micro_cases
import pool_cases
import pool_samples
import run_cases
import samples
import slow_cases
import table

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "release"
PROGRAMS = BUILD / "bin"
TOOL = PROGRAMS / "ostrelscan"
MKPOOL = BUILD / "tests" / "mkpool"


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--rounds", type=int, default=7, metavar="N",
                        help="how often every case is measured (default: 7)")
    parser.add_argument("--size", type=int, default=1024, metavar="MIB",
                        help="records of the sample sets (default: 1024 MiB)")
    parser.add_argument("--folder", type=pathlib.Path, default=ROOT / "build" / "bench",
                        help="where samples are kept and outputs written (default: build/bench)")
    parser.add_argument("--keep", action="store_true",
                        help="keep the medians, which later runs are compared with")
    parser.add_argument("cases", nargs="*", metavar="CASE",
                        help="how the names of cases begin (default: all)")
    found = parser.parse_args()
    if found.rounds < 1 or found.size < 1:
        parser.error("--rounds and --size take numbers from 1 on")
    return found


def say(text):
    print(text, file=sys.stderr, flush=True)


def left_out(case, commands):
    """Why a case cannot be measured here; empty when it can."""
    missing = [name for name in case.needs if not shutil.which(name)]
    if case.zsbtool not in {"", *commands}:
        missing.append(f"zsbtool {case.zsbtool}")
    missing += [path for path in case.devices if not os.access(path, os.R_OK | os.W_OK)]
    return ", ".join(missing)


def are_wanted(begin, wanted):
    """Whether a case may be wanted whose name begins so."""
    return not wanted or any(name.startswith(begin) or begin.startswith(name) for name in wanted)


def companion_cases(asked, outputs):
    """zsbtool's."""
    if not any(are_wanted(begin, asked.cases) for begin in cases.BEGIN):
        return
    sample, part = (samples.prepare(asked.folder / f"sample-{size}", size, say)
                    for size in (asked.size, -(-asked.size // 8)))
    place = cases.Place(PROGRAMS, outputs, sample, part)
    commands = measuring.commands_of(PROGRAMS / "zsbtool")
    for case in cases.all_cases(place):
        why = left_out(case, commands)
        if why:
            say(f"bench: {case.name} is left out: {why} is not there")
        else:
            yield case


def pool_based(asked, stack):
    """ostrelscan's, whose devices are there until the stack is left."""
    for module, why in ((pool_cases, pool_samples.why_not), (run_cases, slow_cases.why_not),
                        (slow_cases, slow_cases.why_not), (let_go_cases, let_go_cases.why_not)):
        if not any(are_wanted(begin, asked.cases) for begin in module.BEGIN):
            continue
        if why():
            say(f"bench: {' and '.join(module.BEGIN)} are left out: {why()} is not there")
        else:
            yield from stack.enter_context(module.all_cases(TOOL, MKPOOL, say))


def micro(asked):
    """Those of parts of the programs."""
    if not any(are_wanted(begin, asked.cases) for begin in micro_cases.BEGIN):
        return []
    return micro_cases.all_cases(BUILD / "benchmarks" / "micro_benchmarks", say)


def measure(asked):
    """The rows of the cases that were asked for."""
    asked.folder.mkdir(parents=True, exist_ok=True)
    with contextlib.ExitStack() as stack:
        outputs = pathlib.Path(stack.enter_context(
            tempfile.TemporaryDirectory(prefix="outputs-", dir=asked.folder)))
        found = [*companion_cases(asked, outputs), *pool_based(asked, stack), *micro(asked)]
        todo = [case for case in found
                if not asked.cases or any(map(case.name.startswith, asked.cases))]
        return measuring.measure(todo, asked.rounds, outputs, say, kept.read())


def main():
    asked = arguments()
    for number in (signal.SIGTERM, signal.SIGHUP):  # devices are taken apart as after an interrupt
        signal.signal(number, signal.default_int_handler)
    os.environ.setdefault("OSTREL_BUILD", str(BUILD))
    load = os.getloadavg()[0]
    rows = measure(asked)
    print(f"{asked.rounds} rounds, {os.cpu_count()} cores, load {load:.1f} before and "
          f"{os.getloadavg()[0]:.1f} after, {asked.size} MiB of records")
    print(table.text(rows), end="")
    if asked.keep:
        kept.write(rows)
    return 1 if any(row.missed for row in rows) else 0


if __name__ == "__main__":
    sys.exit(main())
