"""One thing that is measured."""

import dataclasses
import pathlib


@dataclasses.dataclass(frozen=True)
class Case:
    """`goals` has, for each measure, the highest ratio to the anchor's. The measures are "cpu" (user and
    system, of the whole process tree) and "wall", in seconds. Without an anchor the command prints its
    measures itself, as a JSON object of seconds, and the goals are seconds, too."""
    name: str
    command: list
    goals: dict
    anchor: list = ()
    zsbtool: str = ""    # the command of it that is needed
    needs: tuple = ()    # programs
    devices: tuple = ()
    outputs: pathlib.Path = None    # emptied before every run, instead of the common folder
