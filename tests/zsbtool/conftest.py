"""Puts tests/support on the path."""

import os
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))

GOLDEN = pathlib.Path(__file__).resolve().parent / "golden"


@pytest.fixture
def golden():
    """Compares a text with a file of golden/; with REWRITE_GOLDEN set in the environment it writes
    that file, to be reviewed as code."""
    def compare(name, text):
        path = GOLDEN / name
        if os.environ.get("REWRITE_GOLDEN"):
            path.parent.mkdir(exist_ok=True)
            path.write_text(text, encoding="utf-8")
        assert text == path.read_text(encoding="utf-8")
    return compare
