"""The medians that runs are compared with."""

import json
import pathlib

FILE = pathlib.Path(__file__).with_name("kept.json")
DIGITS = 4


def read():
    """{"case, measure": median}"""
    return json.loads(FILE.read_text(encoding="ascii")) if FILE.exists() else {}


def write(rows):
    """Keeps these, and those of cases that were not measured."""
    medians = {f"{row.case}, {row.measure}": float(f"{row.median:.{DIGITS}g}") for row in rows}
    text = json.dumps(read() | medians, indent=1, sort_keys=True)
    FILE.write_text(text + "\n", encoding="ascii")
