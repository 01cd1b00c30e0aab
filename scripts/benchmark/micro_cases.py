"""Parts of the programs by themselves, by the benchmark library's own loops."""

import json
import subprocess

from case import Case

BEGIN = ("micro",)    # how the names of these cases begin
UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


def names(program):
    shown = subprocess.run([program, "--benchmark_list_tests"], capture_output=True, text=True,
                           check=True).stdout
    return shown.split()


def seconds(program, name):
    """The processor's time of one turn of the loop."""
    done = subprocess.run([program, f"--benchmark_filter=^{name}$", "--benchmark_format=json",
                           "--benchmark_min_time=0.2"], capture_output=True, text=True, check=True)
    (found,) = json.loads(done.stdout)["benchmarks"]
    return found["cpu_time"] * UNITS[found["time_unit"]]


def all_cases(program, say):
    if not program.exists():
        say("bench: micro is left out: the benchmark library is not there")
        return []
    return [Case(f"micro {name}", goals={"cpu": None},
                 take=lambda name=name: {"cpu": (seconds(program, name), None)})
            for name in names(program)]
