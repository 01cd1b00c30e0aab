"""Locales that tests make for themselves; nothing is installed."""

import functools
import os
import pathlib
import shutil
import subprocess
import tempfile

SOURCES = pathlib.Path("/usr/share/i18n")


def why_none():
    """Why no locale can be made here, or None."""
    if not shutil.which("localedef"):
        return "no locale can be made: localedef is not installed"
    if not (SOURCES / "locales" / "tr_TR").exists():
        return "no locale can be made: the sources of the package locales are not installed"
    return None


@functools.lru_cache
def _folder():
    return tempfile.TemporaryDirectory(prefix="locales-")


@functools.lru_cache
def environment(language="tr_TR", charset="UTF-8"):
    """What makes a program run in this locale, made on the way."""
    folder = _folder().name
    name = f"{language}.{charset}"
    subprocess.run(["localedef", "-i", language, "-f", charset,
                    os.path.join(folder, name)], check=True, capture_output=True)
    return {"LOCPATH": folder, "LC_ALL": name}
