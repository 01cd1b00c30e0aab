"""The pictures of the documents: they show the programs as they are."""

import importlib.util
import json
import re
import shutil
import xml.etree.ElementTree as ElementTree

import pytest

import house

PICTURES = house.ROOT / "docs/pictures"


@pytest.fixture(scope="module")
def maker():
    spec = importlib.util.spec_from_file_location("pictures", house.ROOT / "scripts/pictures.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def test_every_picture_shows_what_the_programs_show(maker, capsys):
    assert maker.main(["--check"]) == 0, capsys.readouterr().out + "scripts/pictures.py makes them anew"


def test_a_picture_that_is_out_of_date_is_named(maker, monkeypatch, tmp_path, capsys):
    made = {path.stem: path.read_text(encoding="utf-8") for path in PICTURES.glob("*.svg")}
    assert len(made) >= 6
    monkeypatch.setattr(maker, "make", lambda folder: dict(made))
    monkeypatch.setattr(maker, "PICTURES", shutil.copytree(PICTURES, tmp_path / "pictures"))
    assert maker.main(["--check"]) == 0
    (tmp_path / "pictures/save.svg").write_text(made["save"].replace("Scanning", "Skimming"),
                                                encoding="utf-8")
    (tmp_path / "pictures/error.svg").unlink()
    (tmp_path / "pictures/old.svg").touch()
    assert maker.main(["--check"]) == 1
    assert capsys.readouterr().out == "".join(
        f"docs/pictures/{name}.svg is out of date\n" for name in ("error", "old", "save"))


def test_the_picture_of_a_page_holds_its_text_in_colours_for_light_and_dark():
    root = ElementTree.parse(PICTURES / "report.svg").getroot()
    assert "(prefers-color-scheme: dark)" in root.find("{http://www.w3.org/2000/svg}style").text
    body = root.find("{http://www.w3.org/2000/svg}foreignObject/{http://www.w3.org/1999/xhtml}body")
    assert {"What was saved", "Findings", "Where the block types lie"} <= {
        heading.text for heading in body.findall("{http://www.w3.org/1999/xhtml}h2")}


@pytest.mark.parametrize("path", sorted(set(PICTURES.glob("*.svg")) - {PICTURES / "report.svg"}),
                         ids=lambda path: path.stem)
def test_a_screen_holds_text_in_colours_for_light_and_dark(path):
    root = ElementTree.parse(path).getroot()
    style = root.find("{http://www.w3.org/2000/svg}style").text
    assert "prefers-color-scheme:dark" in style
    texts = root.findall("{http://www.w3.org/2000/svg}text")
    assert texts and all(text.text for text in texts)
    for text in texts:
        for name in text.get("class").split():
            assert f".{name}{{" in style


def test_the_recording_plays_the_demonstration_to_its_end():
    header, *events = [json.loads(line) for line in
                       (PICTURES / "demo.cast").read_text(encoding="utf-8").splitlines()]
    assert header["version"] == 2
    times = [event[0] for event in events]
    assert times == sorted(times) and {event[1] for event in events} == {"o"}
    shown = "".join(event[2] for event in events)
    story = (house.ROOT / "scripts/sample_run.py").read_text(encoding="utf-8")
    steps = re.findall(r'say\("([^"]*)"', story.split("def demonstrate")[0])
    assert len(steps) > 7
    assert re.findall(r"== (.*?)\r\n", shown) == [
        step for step in sorted(steps, key=shown.find)] + ["Done"]
