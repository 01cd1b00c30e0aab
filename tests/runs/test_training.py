"""The solutions of the training's exercises, typed in as they stand there."""

import pytest

import house
import loopdev
import transcripts

PAGE = house.ROOT / "docs/training.md"


def test_every_solution_shows_what_happens(build, tmp_path):
    for answer in (loopdev.have_loop(), loopdev.have_service()):
        if not answer:
            pytest.skip(answer.why)
    shown = transcripts.sessions(PAGE.read_text(encoding="utf-8").split("## Solutions")[1])
    printed = transcripts.run([command for command, _ in shown], tmp_path, env={
        "OSTREL_BUILD": str(build)}, before=[house.ROOT / "scripts/training", tmp_path / "training"])
    assert len(shown) > 20
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
