"""What the operator's guide and the training's solutions show, typed in as it stands there."""

import pytest

import house
import loopdev
import transcripts


@pytest.mark.parametrize("page, begins", [
    ("operators.md", "## From a damaged pool"), ("training.md", "## Solutions")])
def test_every_session_shows_what_happens(build, tmp_path, page, begins):
    for answer in (loopdev.have_loop(), loopdev.have_service()):
        if not answer:
            pytest.skip(answer.why)
    text = (house.ROOT / "docs" / page).read_text(encoding="utf-8")
    assert not transcripts.sessions(text.split(begins)[0])
    shown = transcripts.sessions(text.split(begins)[1])
    printed = transcripts.run([command for command, _ in shown], tmp_path, env={
        "OSTREL_BUILD": str(build)}, before=[house.ROOT / "scripts/training", tmp_path / "training"])
    assert len(shown) > 15
    for (command, lines), seen in zip(shown, printed):
        assert transcripts.fits(lines, seen), (command, seen)


@pytest.mark.parametrize("shown, printed, fitting", [
    (["a", "b"], ["a", "b"], True),
    (["a"], ["a", "b"], False),
    ([], ["a"], False),
    (["a ... c"], ["a b c"], True),
    (["a ... c"], ["a b d"], False),
    (["...", "c", "..."], ["a", "b", "c"], True),
    (["...", "c", "..."], ["a", "b", "d"], False),
])
def test_a_shown_line_is_held_against_a_printed_one(shown, printed, fitting):
    assert transcripts.fits(shown, printed) == fitting
