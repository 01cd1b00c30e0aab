"""What is measured: each case a command, what it is compared with, and its goals."""

import dataclasses
import pathlib
import sys

import samples
from case import Case


@dataclasses.dataclass(frozen=True)
class Place:
    """Where things stand."""
    program: pathlib.Path    # the folder of the programs
    outputs: pathlib.Path    # emptied before every run
    sample: samples.Sample
    part: samples.Sample     # an eighth of it, for what takes long or writes


BEGIN = ("check", "pack", "image", "mount")    # how the names of these cases begin


def all_cases(place):
    sample, zsbtool, out = place.sample, str(place.program / "zsbtool"), place.outputs
    return [
        Case("check raw", [zsbtool, "check", sample.raw], {"cpu": 0.35},
             anchor=["sha256sum", *sample.raw_files], zsbtool="check"),
        Case("check compressed", [zsbtool, "check", sample.compressed], {"cpu": 0.9, "wall": 0.55},
             anchor=["gzip", "-t", sample.gzip], zsbtool="check"),
        Case("pack", [zsbtool, "pack", place.part.raw, out / "packed"], {"wall": 1.05},
             anchor=["sh", "-c", 'out=$1; shift; cat "$@" | pigz -6 > "$out"', "sh",
                     out / "all.gz", *place.part.raw_files],
             zsbtool="pack", needs=("pigz",)),
        # Both have stored what they made when they end.
        Case("image", [zsbtool, "image", place.part.raw, "-o", out / "made.img"], {"wall": 1.3},
             anchor=["sh", "-c", 'cp --sparse=always "$1" "$2" && sync "$2"', "sh",
                     place.part.image, out / "copied.img"],
             zsbtool="image"),
        Case("mount", [sys.executable, pathlib.Path(__file__).with_name("latencies.py"), zsbtool,
                       sample.compressed, out, str(sample.blocks)],
             {"cold": 50e-3, "warm": 50e-6}, zsbtool="mount", devices=("/dev/fuse",)),
    ]
