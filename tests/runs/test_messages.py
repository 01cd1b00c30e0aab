"""The page of messages is held against the texts in the code, both ways."""

import re

import pytest

import house

PAGE = (house.ROOT / "docs/messages.md").read_text(encoding="utf-8")
# Texts of the companion, which has a page of its own; of commands that no run of the tool gives; and
# tables of names.
ELSEWHERE = {part for room in house.ROOMS if room.name in ("scan sets", "companion")
             for stems in room.parts().values() for part in stems} | {
    "util/common/ravCommands", "util/common/errorTable", "util/common/qdsNitErrorTable",
    "util/common/blockTypes", "util/ostrelscan/usage"}
# What a program reads, and the frame of the log.
NO_MESSAGES = {
    r'"%b %d, %Y %I:%M:%S %p %z"', "<CurrentTime time=", "Current time", "<virtualIO><datastream name=",
    "KUVO Pool Scan %03d", "- KUVO Pool Scanner", '<argv index="0x', '" argv="', "Pool GUID",
    "Volume GUID", "Old Volume GUID", "New Volume GUID",
    '<ostrelRequest><pool><getPoolInfo> type="basic"><poolName>',
    '<ostrelRequest><volume><getVolumeInfo> type="basic"><volumeName>',
    "Copies a pool's internal blocks for support, and writes them back.", "</AllObjects> <Name>",
    "scan files are little-endian and their structures are read and written as they are",
}
GAP = "…"


def plain(text):
    """One blank for any, and a gap for every conversion."""
    text = re.sub(r"%-?\d*l*[a-zA-Z]", GAP, text.replace("%%", "%"))
    return re.sub(r"\s+", " ", text).strip()


def literals(source):
    """The texts of a source, each as the compiler joins it."""
    source = re.sub(r"^\s*(//|#include|static_assert).*$", "", source, flags=re.MULTILINE)
    string = r'"((?:[^"\\\n]|\\.)*)"'
    for found in re.finditer(rf"(?<!R){string}(?:\s*{string})*", source):
        joined = "".join(re.findall(string, found[0]))
        yield re.sub(r"\\(.)", lambda escape: {"n": "\n", "r": "\r"}.get(escape[1], escape[1]), joined)


def is_message(text):
    """Two words at least; a place in the program before them is none."""
    return re.search(r"[A-Za-z]{2,}[^A-Za-z]* [^ ]*[A-Za-z]{2,}", text) is not None


def texts_of_the_tool():
    for name, source in house.read_tree().items():
        if name.startswith("util/") and name.rsplit(".", 1)[0] not in ELSEWHERE:
            for text in literals(source):
                yield name, plain(re.sub(r"^\s*util/[a-zA-Z/]+\[\d+\]", "", text))


TEXTS = [(name, text) for name, text in texts_of_the_tool()
         if is_message(text.replace(GAP, "")) and text not in map(plain, NO_MESSAGES)]
SHOWN = [plain(shown.replace("\\|", "|")) for shown in re.findall(r"`([^`]+)`", PAGE)]
PIECES = {piece.strip() for shown in SHOWN for piece in shown.split(GAP)}
OPEN = ("Unable to parse XML tag ", "Unable to flush data ")  # the page shows what these begin with


def fits(text):
    """Whether the page shows a text, piece by piece."""
    return text.startswith(OPEN) or all(any(piece.strip() in shown for shown in PIECES)
                                        for piece in text.split(GAP) if is_message(piece))


def test_every_text_of_the_code_is_on_the_page():
    assert len(TEXTS) > 120
    assert sorted({f"{name}: {text}" for name, text in TEXTS if not fits(text)}) == []


def messages():
    """What the page's tables explain."""
    cells = re.findall(r"^\| (`.*?`) \|", PAGE, re.MULTILINE)
    return [plain(shown.replace("\\|", "|")) for cell in cells for shown in re.findall("`([^`]+)`", cell)]


def test_every_message_of_the_page_is_in_the_code():
    whole = "\n".join(plain(text) for _, source in house.read_tree().items()
                      for text in literals(source))
    assert len(messages()) > 120
    missing = [(message, piece.strip()) for message in messages() for piece in message.split(GAP)
               if piece.strip() not in whole]
    assert missing == []


@pytest.mark.parametrize("source, found", [
    ('Log() << "Could not do it: " << why << "\\n";', ["Could not do it:"]),
    ('const char* kText =\n    "one half, "\n    "and the other";', ["one half, and the other"]),
    ('#include "util/common/log.h"\n// a "remark of mine"', []),
])
def test_texts_are_found_in_a_source(source, found):
    assert [plain(text) for text in literals(source) if is_message(text)] == found


def test_a_text_that_the_page_lacks_is_found():
    assert not fits("The engine has run out of patience")
