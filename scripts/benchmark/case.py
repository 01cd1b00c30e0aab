"""One thing that is measured."""

import collections.abc
import dataclasses
import pathlib


@dataclasses.dataclass(frozen=True)
class Case:
    """`goals` has, for each measure, the highest ratio to the anchor's, or none. The measures are "cpu"
    (user and system, of the whole process tree) and "wall", in seconds. Without an anchor the command
    prints its measures itself, as a JSON object, and the goals are in its units. What takes more than
    commands has `take`, which returns {measure: (value, the anchor's or None)} of one round, or a list of
    those."""
    name: str
    command: list = ()
    goals: dict = dataclasses.field(default_factory=dict)
    anchor: list = ()
    zsbtool: str = ""    # the command of it that is needed
    needs: tuple = ()    # programs
    devices: tuple = ()
    outputs: pathlib.Path = None    # emptied before every run, instead of the common folder
    take: collections.abc.Callable = None
    counted: int = 0    # bytes for which the calls of the command are told
