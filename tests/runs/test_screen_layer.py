"""The screen layer by itself: keys, questions, attributes, size."""

import contextlib
import curses
import os
import re

import pytest

import ostrelscan
import screen

TERM = "xterm-256color"
BELL_KEYS = ["x", "q", "1", " ", "\t"]


@contextlib.contextmanager
def driven(*steps, redirect=None, **how):
    """The driver at work on these steps."""
    argv = [ostrelscan.helper("screenDriver"), *map(str, steps)]
    if redirect:
        argv = ["/bin/sh", "-c", f'exec "$0" "$@" {redirect}', *argv]
    with screen.Terminal(argv, env={"ESCDELAY": "100"}, **how) as terminal:
        yield terminal


def report(terminal):
    """What the driver found out, once it has ended."""
    assert terminal.wait_exit(60) == 0
    lines = terminal.now().text.split()
    text = " ".join(lines)
    assert text.endswith("end")
    return text.removesuffix("end").strip()


def found(*steps, **how):
    with driven(*steps, **how) as terminal:
        return report(terminal)


def sequence(capability):
    """What the terminal sends for a key."""
    curses.setupterm(TERM, 2)
    text = curses.tigetstr(capability)
    assert text, capability
    return text.decode()


# Questions


@pytest.mark.parametrize("default", ["no", "yes"])
@pytest.mark.parametrize("key, answer", [
    ("y", 1), ("Y", 1), ("n", 0), ("N", 0), ("\r", None), ("\n", None), ("\x1bOM", None),
    ("\x1b", None)],
    ids=["y", "Y", "n", "N", "return", "newline", "keypad-enter", "escape"])
def test_a_question_is_answered_by_its_keys_and_by_its_default(default, key, answer):
    with driven("ask", default, "keep", "Sure? ", "cursor") as terminal:
        letter = default[0]
        terminal.wait_for(lambda picture: picture.cursor == (0, 6) and
                          picture.rows[0] == f"Sure? {letter}".ljust(80))
        terminal.send(key)
        wanted = answer if answer is not None else int(default == "yes")
        assert report(terminal) == f"answer {wanted} cursor 1 0"
        assert terminal.bells == 0


@pytest.mark.parametrize("flags, key, answer", [
    (0, "\x1b", 0), (1, "\x1b", 1), (2, "\x1b", -1), (3, "\x1b", -1), (0x100, "\x1b", -1),
    (2, "\r", 0), (3, "\r", 1), (2, "n", 0), (3, "N", 0), (2, "Y", 1)])
def test_escape_cancels_where_the_question_allows_it(flags, key, answer):
    with driven("ask2", flags, "Sure? ") as terminal:
        terminal.wait_for(f"Sure? {'ny'[flags & 1]}")
        terminal.send(key)
        assert report(terminal) == f"answer {answer}"


def test_the_line_end_behind_the_answer_clears_the_question():
    with driven("text", 2, "above", "at", 1, 0, "ask", "no", "keep", "Sure? ", "cursor",
                "text", 2, "below", "a-key") as terminal:
        terminal.wait_for("Sure? n")
        terminal.send("y")
        picture = terminal.wait_for("below")
        assert [row.rstrip() for row in picture.rows[:4]] == ["above", "", "below", ""]
        terminal.send("k")
        assert report(terminal) == "answer 1 cursor 2 0 key 107"


@pytest.mark.parametrize("key", [
    *BELL_KEYS, "\x01", "\x7f", sequence("kf1"), sequence("kf63"), sequence("kcuu1"),
    sequence("kdch1"), sequence("kpp")], ids=repr)
def test_another_key_beeps_and_leaves_the_question_standing(key):
    with driven("ask", "no", "keep", "Sure? ") as terminal:
        terminal.wait_for("Sure? n")
        terminal.send(key)
        terminal.wait_for(lambda _: terminal.bells == 1)
        assert terminal.pump(0.1)
        assert terminal.rows()[0].rstrip() == "Sure? n"
        terminal.send("y")
        assert report(terminal) == "answer 1"
        assert terminal.bells == 1


def test_keys_typed_ahead_never_answer_a_question():
    with driven("text", 2, "ready", "at", 1, 0, "sleep", 600,
                "ask", "no", "keep", "Sure? ") as terminal:
        terminal.wait_for("ready")
        terminal.send("yyY\r")
        terminal.key("f1")
        terminal.wait_for("Sure? n")
        assert terminal.pump(0.3)
        assert terminal.bells == 0
        terminal.send("Y")
        assert report(terminal) == "answer 1"


def test_a_resize_redraws_and_keeps_waiting():
    with driven("text", 2, "above", "at", 30, 90, "text", 2, "far away", "at", 1, 0,
                "ask", "yes", "keep", "Sure? ") as terminal:
        terminal.wait_for("Sure? y")
        for rows, columns in ((43, 132), (10, 30), (43, 132)):
            terminal.resize(rows, columns)
            whole = ["above", "Sure? y", *[""] * (rows - 2)]
            if rows > 30:
                whole[30] = " " * 90 + "far away"
            terminal.wait_for(lambda picture, rows=rows, columns=columns, whole=whole:
                              picture.rows == [row.ljust(columns) for row in whole])
        assert terminal.bells == 0
        terminal.send("n")
        assert report(terminal) == "answer 0"


def test_a_question_can_clear_its_line_after_it():
    with driven("at", 1, 0, "text", 2, "leftover", "at", 0, 0, "ask", "no", "clear", "Sure? ",
                "cursor", "text", 2, "next", "sleep", 300) as terminal:
        terminal.wait_for("Sure? n")
        terminal.send("y")
        picture = terminal.wait_for("next")
        assert [row.rstrip() for row in picture.rows[:3]] == ["", "next", ""]
        assert report(terminal) == "answer 1 cursor 1 0"


def test_a_question_may_hold_percent_signs():
    with driven("ask", "no", "keep", "100%s%n sure? ") as terminal:
        terminal.wait_for("100%s%n sure? n")
        terminal.send("n")
        assert report(terminal) == "answer 0"


@pytest.mark.parametrize("steps, wanted", [
    (("ask", "no", "keep", "Sure? "), "answer 0"),
    (("ask", "yes", "keep", "Sure? "), "answer 1"),
    (("ask2", 2, "Sure? "), "answer -1"),
    (("ask2", 3, "Sure? "), "answer -1"),
    (("key",), "key 3 255 0 0"),
])
def test_input_that_has_ended_counts_as_escape(steps, wanted):
    assert found(*steps, redirect="</dev/null") == wanted


def end_the_wait(folder):
    with open(folder / "end", "wb", buffering=0) as end:
        end.write(b"e")


@contextlib.contextmanager
def endable(tmp_path, *steps):
    """The driver at these steps; its descriptor 3 can be read behind end_the_wait."""
    os.mkfifo(tmp_path / "end")
    with driven(*steps, redirect="3<>end", cwd=tmp_path) as terminal:
        yield terminal


@pytest.mark.parametrize("default", ["no", "yes"])
def test_a_wait_that_is_ended_answers_no_whatever_the_default(tmp_path, default):
    with endable(tmp_path, "ends-at", 3, "ask", default, "keep", "Sure? ", "cursor") as terminal:
        terminal.wait_for(f"Sure? {default[0]}")
        end_the_wait(tmp_path)
        assert report(terminal) == "answer 0 cursor 1 0"


def test_a_key_that_waits_answers_nothing_once_the_wait_is_ended(tmp_path):
    with endable(tmp_path, "text", 2, "ready", "a-key", "ends-at", 3, "ask2", 0, "Sure? ",
                 "ends-at", -1, "a-key") as terminal:
        terminal.wait_for("ready")
        end_the_wait(tmp_path)
        terminal.send("xy")
        assert report(terminal) == "key 120 answer 0 key 121"


def test_a_wait_that_may_be_cancelled_is_not_cancelled_but_ended(tmp_path):
    with endable(tmp_path, "ends-at", 3, "ask2", 3, "Sure? ") as terminal:
        terminal.wait_for("Sure? y")
        end_the_wait(tmp_path)
        assert report(terminal) == "answer 0"


def test_every_wait_ends_with_the_descriptor_and_takes_no_key(tmp_path):
    with endable(tmp_path, "ends-at", 3, "text", 2, "ready", "wait", "at", 1, 0, "text", 2, "ended",
                 "wait", "ends-at", -1, "wait", "a-key") as terminal:
        terminal.wait_for("ready")
        end_the_wait(tmp_path)
        terminal.wait_for("ended")
        terminal.send("k")
        assert report(terminal) == "waited 0 waited 0 waited 1 key 107"


def test_a_key_that_was_not_pressed_is_of_no_kind(tmp_path):
    with endable(tmp_path, "ends-at", 3, "text", 2, "ready", "key") as terminal:
        terminal.wait_for("ready")
        end_the_wait(tmp_path)
        assert report(terminal) == "key -1 0 0 0"


def test_without_a_window_nothing_is_read_and_nothing_asked():
    assert found("no-window") == "no window 0 -7"


# Keys


KINDS = [
    (None, "a", 0, "a"), (None, " ", 0, " "), (None, "\t", 0, "\t"), (None, "\xff", 0, None),
    ("kf1", None, 1, "\x09"), ("kf12", None, 1, "\x14"), ("kf63", None, 1, "\x47"),
    ("kent", None, 2, "\x57"), (None, "\r", 2, None), (None, "\x1b", 3, "\x1b"),
    ("kbs", None, 4, "\x07"), ("kdch1", None, 5, "\x4a"), ("kich1", None, 6, "\x4b"),
    ("kcuu1", None, 7, "\x03"), ("kcud1", None, 8, "\x02"), ("kcuf1", None, 9, "\x05"),
    ("kcub1", None, 10, "\x04"), ("khome", None, 11, "\x06"), ("kend", None, 12, "\x68"),
    ("kpp", None, 13, "\x53"), ("knp", None, 14, "\x52"), ("kcbt", None, 0, "\x61"),
]


@pytest.mark.parametrize("capability, text, kind, character", KINDS,
                         ids=[str(row[0] or ascii(row[1])) for row in KINDS])
def test_a_key_has_its_kind_and_the_low_bits_of_its_code(capability, text, kind, character):
    with driven("text", 2, "ready", "key") as terminal:
        terminal.wait_for("ready")
        terminal.child.send(sequence(capability) if capability else text.encode("latin-1"))
        words = report(terminal).split()
    assert (words[0], int(words[1]), words[3:]) == ("key", kind, ["0", "0"])
    if character is not None:
        assert int(words[2]) == ord(character)


def test_one_key_is_its_character_alone():
    with driven("text", 2, "ready", "a-key", "a-key") as terminal:
        terminal.wait_for("ready")
        terminal.send("z")
        terminal.key("up")
        assert report(terminal) == "key 122 key 3"


def test_a_resize_is_no_key():
    with driven("text", 2, "ready", "a-key") as terminal:
        terminal.wait_for("ready")
        terminal.resize(43, 132)
        assert terminal.pump(0.3)
        terminal.send("k")
        assert report(terminal) == "key 107"


def test_type_ahead_can_be_thrown_away():
    with driven("text", 2, "ready", "sleep", 500, "eat", "at", 1, 0, "text", 2, "eaten",
                "a-key") as terminal:
        terminal.wait_for("ready")
        terminal.send("abc")
        terminal.wait_for("eaten")
        terminal.send("d")
        assert report(terminal) == "dry 1 key 100"


# Output


NUMBERS = [-3, -1, *range(18), 100]


def painted(term=TERM, numbers=tuple(NUMBERS)):
    steps = [word for row, number in enumerate(numbers)
             for word in ("at", row, 0, "text", number, f"look {number}")]
    with driven(*steps, "at", 24, 0, "text", 2, "done", "a-key", term=term) as terminal:
        picture = terminal.wait_for("done")
        terminal.send("x")
        report(terminal)
        return picture, terminal.output


def test_attributes_differ_in_boldness_alone():
    picture, _ = painted()
    for row, number in enumerate(NUMBERS):
        cells = [picture.cell(row, column) for column in range(len(f"look {number}"))]
        looks = {(cell.fg, cell.bg, cell.bold) for cell in cells}
        assert looks == {("white", "blue", number in (1, 5, 10, 14))}, number
        after = picture.cell(row, 20)
        assert (after.fg, after.bg, after.bold) == ("white", "blue", False)


def test_attribute_0_alone_is_invisible():
    invisible = rb"\x1b\[([0-7]+;)*8m"
    assert re.search(invisible, painted(numbers=(0,))[1])
    assert not re.search(invisible, painted(numbers=tuple(n for n in NUMBERS if n))[1])


def test_without_colours_nothing_is_switched():
    numbers = tuple(n for n in NUMBERS if n)
    picture, output = painted(term="vt100", numbers=numbers)
    assert b"\x1b[1m" not in output and b"\x1b[44m" not in output
    for row, number in enumerate(numbers):
        assert picture.rows[row].rstrip() == f"look {number}"
        assert picture.cell(row, 0).bold is False


def test_the_cursor_is_where_the_text_ended():
    assert found("cursor", "at", 3, 7, "cursor", "text", 2, "abc", "cursor",
                 "at", 99, 319, "cursor") == "cursor 0 0 cursor 3 7 cursor 3 10 cursor 99 319"


def test_text_beyond_the_screen_is_kept_and_beyond_the_pad_wraps():
    with driven("text", 2, "x" * 330, "cursor", "a-key") as terminal:
        picture = terminal.wait_for("x" * 10)
        assert [row.rstrip() for row in picture.rows[:3]] == ["x" * 80, "x" * 10, ""]
        terminal.resize(25, 320)
        terminal.wait_for(lambda wide: wide.rows[0] == "x" * 320)
        terminal.send("k")
        assert report(terminal) == "cursor 1 10 key 107"


@pytest.mark.parametrize("rows, columns", [(25, 80), (5, 10)])
@pytest.mark.parametrize("length", [4000, 31_999, 40_000])
def test_a_text_may_be_longer_than_the_screen_and_the_pad(rows, columns, length):
    with driven("text", 2, "x" * length, "at", 1, 0, "text", 2, "alive", "a-key",
                rows=rows, columns=columns) as terminal:
        assert terminal.wait_for("alive").rows[2] == "x" * columns
        terminal.send("k")
        assert report(terminal) == "key 107"


def test_a_line_is_cleared_whole_and_the_cursor_stands_at_its_start():
    with driven("text", 2, "one", "at", 1, 0, "text", 2, "two", "at", 1, 2, "clear-line", "cursor",
                "at", 2, 0, "text", 2, "three", "a-key") as terminal:
        picture = terminal.wait_for("three")
        assert [row.rstrip() for row in picture.rows[:4]] == ["one", "", "three", ""]
        terminal.send("k")
        assert report(terminal) == "cursor 1 0 key 107"


def test_a_cleared_screen_holds_only_what_follows():
    with driven("at", 5, 5, "text", 2, "before", "clear-screen", "at", 9, 9, "text", 2, "behind",
                "a-key") as terminal:
        picture = terminal.wait_for("behind")
        assert picture.text.split() == ["behind"]
        terminal.send("k")
        report(terminal)


def test_the_size_is_standard_inputs():
    assert found("size", rows=31, columns=97) == "size 0 31 97"
    assert found("size", redirect="</dev/null") == "size -1 -7 -7"


def test_without_a_size_only_the_top_left_cell_is_shown():
    with driven("text", 2, "hello", "sleep", 300, redirect="</dev/null") as terminal:
        assert report(terminal) == ""
        assert terminal.last_full().text.strip() == "h"


@pytest.mark.parametrize("size, rows", [((200, 0), ["ready", "x"]), ((0, 200), ["reXdy", ""])],
                         ids=["no columns", "no rows"])
def test_a_size_that_is_half_none_shows_one_column_or_row(size, rows):
    with driven("text", 2, "ready", "a-key", "at", 0, 2, "text", 2, "X", "at", 1, 0, "text", 2, "x",
                "redraw", "a-key") as terminal:
        terminal.wait_for("ready")
        terminal.child.setwinsize(*size)
        terminal.send("k")
        terminal.wait_for(lambda picture: [row.rstrip() for row in picture.rows[:2]] == rows)
        terminal.send("k")
        assert report(terminal) == "key 107 key 107"


def test_a_redraw_takes_no_time_and_repaints():
    with driven("text", 2, "ready", *["redraw"] * 20, "at", 1, 0, "text", 2, "painted",
                "a-key") as terminal:
        terminal.wait_for("painted")
        assert terminal.rows()[0].rstrip() == "ready"
        terminal.send("k")
        assert report(terminal) == "key 107"
