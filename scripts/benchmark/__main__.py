"""Runs the cases in turns, prints their table, and ends with 1 where a goal is missed."""

import argparse
import os
import pathlib
import shutil
import sys

import cases
import measuring
import samples
import table

ROOT = pathlib.Path(__file__).resolve().parents[2]


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--rounds", type=int, default=7, metavar="N",
                        help="how often every case is measured (default: 7)")
    parser.add_argument("--size", type=int, default=1024, metavar="MIB",
                        help="records of the sample sets (default: 1024 MiB)")
    parser.add_argument("--folder", type=pathlib.Path, default=ROOT / "build" / "bench",
                        help="where samples are kept and outputs written (default: build/bench)")
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


def chosen(wanted, place, commands):
    for case in cases.all_cases(place):
        if wanted and not any(case.name.startswith(name) for name in wanted):
            continue
        why = left_out(case, commands)
        if why:
            say(f"bench: {case.name} is left out: {why} is not there")
        else:
            yield case


def main():
    asked = arguments()
    sample, part = (samples.prepare(asked.folder / f"sample-{size}", size, say)
                    for size in (asked.size, -(-asked.size // 8)))
    place = cases.Place(ROOT / "build" / "release" / "bin", asked.folder / "outputs", sample, part)
    todo = list(chosen(asked.cases, place, measuring.commands_of(place.program / "zsbtool")))
    load = os.getloadavg()[0]
    shutil.rmtree(place.outputs, ignore_errors=True)
    place.outputs.mkdir()
    try:
        rows = measuring.measure(todo, asked.rounds, place.outputs, say)
    finally:
        shutil.rmtree(place.outputs)
    print(f"{asked.rounds} rounds, {os.cpu_count()} cores, load {load:.1f} before and "
          f"{os.getloadavg()[0]:.1f} after, {asked.size} MiB of records")
    print(table.text(rows), end="")
    return 1 if any(row.missed for row in rows) else 0


if __name__ == "__main__":
    sys.exit(main())
