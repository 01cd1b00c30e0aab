"""Runs commands and takes what they cost."""

import json
import os
import re
import shutil
import statistics
import subprocess
import tempfile
import time

import table


class Failed(RuntimeError):
    """A command that is measured ended with another status than 0."""


def commands_of(zsbtool):
    """The names of its commands."""
    shown = subprocess.run([zsbtool, "--help"], capture_output=True, text=True, check=True).stdout
    return set(re.findall(r"^  ([a-z][a-z-]*)", shown.split("\nCommands:\n")[1], re.MULTILINE))


def run(command, outputs=None):
    """What a run cost, {"cpu": seconds, "wall": seconds}, and what it printed. What stands in
    `outputs` is removed before."""
    for path in outputs.iterdir() if outputs else ():
        shutil.rmtree(path) if path.is_dir() else path.unlink()
    with tempfile.TemporaryFile() as printed:
        begin = time.monotonic()
        process = subprocess.Popen(list(map(str, command)), stdin=subprocess.DEVNULL, stdout=printed)
        _, status, usage = os.wait4(process.pid, 0)
        wall = time.monotonic() - begin
        process.returncode = os.waitstatus_to_exitcode(status)
        printed.seek(0)
        text = printed.read()
    if process.returncode != 0:
        raise Failed(f"{command[0]} {command[1]} ended with {process.returncode}")
    return {"cpu": usage.ru_utime + usage.ru_stime, "wall": wall}, text


def measure_once(case, outputs):
    """{measure: (value, the anchor's value or None)} for the measures of a case."""
    outputs = case.outputs or outputs
    if case.take:
        return case.take()
    if not case.anchor:
        values = json.loads(run(case.command, outputs)[1])
        return {name: (values[name], None) for name in case.goals}
    anchor, _ = run(case.anchor, outputs)
    own, _ = run(case.command, outputs)
    return {name: (own[name], anchor[name]) for name in case.goals}


def measure(cases, rounds, outputs, say, kept=None):
    """The rows of the table. All cases take turns, each next to its anchor, so that what else the
    machine does meets them alike; the first turn, which fills caches, does not
    count. `kept` has the
    medians of an earlier run."""
    taken = {(case.name, name): [] for case in cases for name in case.goals}
    for turn in range(rounds + 1):
        for case in cases:
            if turn == 0 and case.take:
                continue
            say(f"bench: {'first turn' if turn == 0 else f'round {turn} of {rounds}'}: {case.name}")
            values = measure_once(case, outputs)
            if turn != 0:
                for name, value in values.items():
                    taken[case.name, name] += value if isinstance(value, list) else [value]
    calls = {case.name: count_calls(case, case.outputs or outputs) for case in cases if case.counted}
    return [row(case, name, taken[case.name, name], calls.get(case.name, ""), kept or {})
            for case in cases for name in case.goals]


def row(case, name, values, calls, kept):
    anchored = values[0][1] is not None
    return table.Row(case.name, name, case.goals[name],
                     [own / anchor if anchored else own for own, anchor in values], anchored,
                     statistics.median(own for own, _ in values), calls,
                     kept.get(f"{case.name}, {name}"))


CALLS = {"reads": "read,pread64,readv", "writes": "write,pwrite64,writev", "advices": "fadvise64"}


def count_calls(case, outputs):
    """How many calls of a kind the command makes for each GiB."""
    with tempfile.NamedTemporaryFile("r", encoding="ascii") as counts:
        run(["strace", "-f", "-c", "-o", counts.name, "-e", "trace=" + ",".join(CALLS.values()),
             *case.command], outputs)
        rows = re.findall(r"^ *[\d.]+ +[\d.]+ +\d+ +(\d+) +(?:\d+ +)?(\w+)$", counts.read(), re.MULTILINE)
        found = {name: int(count) for count, name in rows}
    return ", ".join(
        f"{sum(found.get(call, 0) for call in kinds.split(',')) * 2**30 // case.counted} {name}"
        for name, kinds in CALLS.items())
