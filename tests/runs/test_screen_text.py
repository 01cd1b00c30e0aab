"""Names and paths that are not ASCII: on the screen, and in what the tool compares."""

import os
import re
import subprocess
import sys

import pytest

import house
import locales
import ostrelscan
import restoring
import saving
import scanset
import screen
from layout import CONSENT, PAUSE, consent_rows, layout, other_name_rows, running_rows

UTF8 = {"LC_ALL": "C.UTF-8"}
PLAIN = {"LC_ALL": "C"}
UNKNOWN = {"LC_ALL": "xx_YY.UTF-8"}
TURKISH = [("tr_TR", "UTF-8"), ("tr_TR", "ISO-8859-9")]
RECORDS = restoring.records(range(3))


@pytest.fixture(params=TURKISH, ids=[".".join(row) for row in TURKISH])
def turkish(request):
    """An environment in which "i" is no small "I"."""
    if why := locales.why_none():
        pytest.skip(why)
    return locales.environment(*request.param)


def drawn(*steps, env=UTF8, rows=4, columns=30):
    """The rows behind the screen driver's steps, and what was sent for them."""
    argv = [ostrelscan.helper("screenDriver"), *map(str, steps), "at", rows - 1, 0, "text", 2,
            "done", "a-key"]
    with screen.Terminal(list(map(str, argv)), env=env, rows=rows, columns=columns) as terminal:
        picture = terminal.wait_for("done")
        terminal.send("k")
        assert terminal.wait_exit(60) == 0
        return [row.rstrip() for row in picture.rows[:-1]], terminal.output


# The layer


@pytest.mark.parametrize("text", ["größe", "ÖLÇÜ ıİ", "磁盘-池", "e\u0301te\u0301", "данные",
                                  "\U0001F44D ok"])
def test_text_that_the_locale_holds_is_shown_as_it_is(text):
    assert drawn("text", 2, text)[0][0] == text.replace("e\u0301", "é")


@pytest.mark.parametrize("env", [PLAIN, UNKNOWN], ids=["C", "unknown"])
def test_what_the_locale_does_not_hold_is_one_substitute_for_each_character(env):
    assert drawn("text", 2, "größe 磁盘 \U0001F44D|", env=env)[0][0] == "gr??e ?? ?|"


@pytest.mark.parametrize("text, shown", [
    ("a\udcffb", "a?b"), ("a\udce4\udcb8", "a??"), ("\udcc0\udcaf", "??"),
    ("a\u202eb\u2066c", "a?b?c"), ("a\u200bb\ufeffc", "a?b?c"), ("a\x85b\x9bc", "a?b?c"),
    ("\u0378|\u2028|", "?|?|")], ids=ascii)
def test_what_is_no_character_to_be_shown_is_one_substitute_each(text, shown):
    rows, output = drawn("text", 2, text)
    assert rows[0] == shown
    assert not set(output.decode(errors="surrogateescape")) & set(text) - set(shown)


@pytest.mark.parametrize("env", [UTF8, PLAIN], ids=["C.UTF-8", "C"])
def test_all_of_ascii_stays_as_it_is(env):
    controls = "".join(map(chr, [*range(1, 8), *range(11, 13), *range(14, 32), 127]))
    shown = "".join(f"^{chr(ord(control) ^ 64)}" for control in controls)
    text = "".join(map(chr, range(32, 127)))
    rows, _ = drawn("text", 2, text, "at", 1, 0, "text", 2, controls, "at", 2, 0,
                    "text", 2, "a\tb\bc", env=env, columns=120)
    assert rows == [text, shown, "a       c"]


def test_a_character_of_two_columns_is_never_cut_at_the_edge():
    steps = ("at", 0, 7, "text", 2, "磁", "at", 1, 8, "text", 2, "磁", "at", 2, 9, "text", 2, "磁")
    for columns, shown in ((10, ["磁", "磁", ""]), (11, ["磁", "磁", "磁"]), (9, ["磁", "", ""])):
        assert [row.strip() for row in drawn(*steps, columns=columns)[0]] == shown, columns


def test_a_cut_character_appears_when_the_terminal_grows_and_goes_when_it_shrinks():
    argv = [ostrelscan.helper("screenDriver"), "text", "2", "12345678磁|", "a-key"]
    with screen.Terminal(argv, env=UTF8, rows=3, columns=9) as terminal:
        for columns, shown in ((9, "12345678"), (10, "12345678磁"), (9, "12345678"),
                               (11, "12345678磁|")):
            terminal.resize(3, columns)
            terminal.wait_for(lambda picture, shown=shown: picture.rows[0].rstrip() == shown)
        terminal.send("k")
        assert terminal.wait_exit(60) == 0


def test_a_character_of_two_columns_at_the_pads_edge_goes_to_the_next_row_whole():
    assert drawn("at", 0, 319, "text", 2, "磁|", columns=320)[0][:2] == ["", "磁|"]


def test_half_a_character_that_was_written_over_leaves_a_blank():
    assert drawn("text", 2, "磁盘池", "at", 0, 1, "text", 2, "x", "at", 1, 0, "text", 2, "磁盘池",
                 "at", 1, 4, "text", 2, "x")[0] == [" x盘池", "磁盘x", ""]


@pytest.mark.parametrize("length", [1023, 1024, 1025, 3000])
def test_a_long_text_is_shown_whole(length):
    text = "x" * (length - 2) + "ö"
    rows, _ = drawn("text", 2, text, rows=12, columns=320)
    assert "".join(rows) == text


# Whole runs


POOL, SHOWN_POOL = "größe-磁盘", "GRößE-磁盘"  # upper case is ASCII's
OTHER = "ölçü-表"
FOLDER = "yedek-ü表"


def substituted(rows):
    """These rows where the locale holds ASCII alone."""
    return {row: re.sub(r"[^\0-\x7f]", "?", text) for row, text in rows.items()}


def cells(rows):
    """The rows of a screen as wide as wanted: characters of two columns fill them sooner."""
    wide = [sum(character in "磁盘表" for character in row) for row in rows]
    return [row[:len(row) - count] for row, count in zip(rows, wide, strict=True)]


@pytest.mark.parametrize("env, told", [(UTF8, dict), (PLAIN, substituted), (UNKNOWN, substituted)],
                         ids=["C.UTF-8", "C", "unknown"])
def test_a_save_shows_names_and_paths(tmp_path, env, told):
    (tmp_path / FOLDER).mkdir()
    feed = saving.Feed(tmp_path / "feed")
    argv = [ostrelscan.tool(), "--bypass-ostrel", "--validation-skip", "-P", FOLDER, "save", POOL,
            feed.path]
    with screen.Terminal(argv, cwd=tmp_path, env=env) as terminal:
        try:
            feed.open()
            for _ in range(3):
                feed.block()
            picture = terminal.wait_for(PAUSE.strip(), timeout=60)
        finally:
            feed.close()
        rows = {**running_rows(picture, 3), 24: PAUSE,
                0: f' Scanning 3 blocks on {SHOWN_POOL}.  Storing to "{FOLDER}/".',
                22: f" {FOLDER}/T0000000.ZSB     3 of 2555            "}
        wanted = layout((25, 80), told(rows))
        assert picture.rows == (cells(wanted) if told is dict else wanted)
        terminal.send("x")
        assert terminal.wait_exit(60) == 0
    log = (tmp_path / ostrelscan.LOG_NAME).read_text(encoding="utf-8")
    assert f"<PoolName>{SHOWN_POOL}</PoolName>" in log and f"<Path>{FOLDER}/</Path>" in log


def restore_folder(tmp_path, stored, path=FOLDER):
    folder = tmp_path / "run"
    (folder / path).mkdir(parents=True)
    (folder / "device").write_bytes(b"")
    name = {"pool_name": stored} if isinstance(stored, str) else {
        "poolName": b"".join(bytes((byte, 0)) for byte in stored)}
    scanset.write_set(folder / path, RECORDS, **name)
    return folder


def restore_on(folder, env, pool=POOL, path=FOLDER):
    argv = [ostrelscan.tool(), "--bypass-ostrel", "--validation-skip", "--danger", "-P", path,
            "restore", pool, "device"]
    return screen.Terminal(argv, cwd=folder, env=env)


@pytest.mark.parametrize("env, told", [(UTF8, dict), (PLAIN, substituted)], ids=["C.UTF-8", "C"])
def test_the_questions_of_a_restore_name_pools_and_paths(tmp_path, env, told):
    def expect(rows):
        wanted = layout((25, 80), told(rows))
        wanted = cells(wanted) if told is dict else wanted
        terminal.wait_for(lambda picture: picture.rows == wanted)

    with restore_on(restore_folder(tmp_path, OTHER), env) as terminal:
        expect(consent_rows(f"{FOLDER}/", SHOWN_POOL))
        terminal.send("y")
        expect(other_name_rows(f"{FOLDER}/", OTHER, SHOWN_POOL))
        terminal.send("y")
        picture = terminal.wait_for(PAUSE.strip(), timeout=60)
        assert picture.rows[0].rstrip() == told(
            {0: f' Restoring to pool {SHOWN_POOL} from "{FOLDER}/".'})[0]
        terminal.send("x")
        assert terminal.wait_exit(60) == 0


@pytest.mark.parametrize("before", range(4))
def test_a_stored_name_is_not_cut_inside_a_character(tmp_path, before):
    name = "N" * before + "磁" * 50
    kept = "N" * before + "磁" * ((127 - before) // 3)
    folder = restore_folder(tmp_path, name)
    with restore_on(folder, UTF8) as terminal:
        terminal.wait_for(f"{CONSENT} n")
        terminal.send("y")
        terminal.resize(25, 200)
        terminal.wait_for(f"are for a pool called {kept}.")
        terminal.send("n")
        assert terminal.wait_exit(60) == 1


@pytest.mark.parametrize("stored", [b"B\xfc", b"\xe4"], ids=ascii)
def test_a_short_stored_name_that_is_no_utf_8_is_kept(tmp_path, stored):
    with restore_on(restore_folder(tmp_path, stored), UTF8) as terminal:
        terminal.wait_for(f"{CONSENT} n")
        terminal.send("y")
        shown = stored.decode("ascii", errors="replace").replace("\ufffd", "?")
        terminal.wait_for(f"are for a pool called {shown}.")
        terminal.send("n")
        assert terminal.wait_exit(60) == 1


def test_an_8_bit_terminal_gets_its_own_bytes(tmp_path):
    if why := locales.why_none():
        pytest.skip(why)
    env = locales.environment("tr_TR", "ISO-8859-9")
    path = os.fsdecode("yedek-ü".encode("iso8859_9"))
    with restore_on(restore_folder(tmp_path, "ölçü-ığ-磁", path), env, path=path) as terminal:
        terminal.wait_for(f"{CONSENT} n")
        terminal.send("y")
        terminal.wait_for("You have asked them")
        terminal.pump(0.2)
        for text in ("yedek-ü/", "a pool called ölçü-ığ-?."):
            assert text.encode("iso8859_9") in terminal.output
        terminal.send("n")
        assert terminal.wait_exit(60) == 1


# What the locale must not change


def test_the_turkish_locale_is_the_trap_that_it_should_be(turkish):
    script = ("import ctypes, locale; locale.setlocale(locale.LC_CTYPE, ''); "
              "print(ctypes.CDLL(None).strcasecmp(b'title', b'TITLE') != 0)")
    done = subprocess.run([sys.executable, "-c", script], env={**os.environ, **turkish},
                          capture_output=True, text=True, check=True)
    assert done.stdout == "True\n"


@pytest.mark.parametrize("stored, pool", [("title", "title"), ("TITLE", "title"),
                                          ("Invisible", "iNVISIBLE")])
def test_pool_names_are_compared_as_ascii_whatever_the_locale(tmp_path, turkish, stored, pool):
    with restore_on(restore_folder(tmp_path, stored), turkish, pool=pool) as terminal:
        terminal.wait_for(f"{CONSENT} n")
        terminal.send("y")
        terminal.wait_for(PAUSE.strip(), timeout=60)
        terminal.send("x")
        assert terminal.wait_exit(60) == 0
        assert f"called {stored}".encode() not in terminal.output


def test_pool_names_get_ascii_capitals_whatever_the_locale(tmp_path, turkish):
    run = ostrelscan.run(["--bypass-ostrel", "save", "iıi-pool", "no-device"], tmp_path,
                         env=turkish)
    assert run.log_run.arguments[-2] == "IıI-POOL"


PARSING = ("Ascii*:*Number*:QRadix*:*GUID*:*Utf8*:NextTag*:Tag*:*Reply*:CDATA*:WhiteSpace*:"
           "*Attribute*:*Form*:CommandLine*:VolumeState*:Text*")


def test_all_that_parses_does_so_whatever_the_locale(turkish):
    if ostrelscan.sanitizer() == "libtsan":
        pytest.skip("the unit tests of this build are those with threads")
    done = subprocess.run([ostrelscan.helper("unit_tests"), f"--gtest_filter={PARSING}"],
                          env={**os.environ, **turkish}, capture_output=True, check=False,
                          timeout=300)
    said = done.stdout.decode(errors="replace")
    assert f"locale {turkish['LC_ALL']}" in said
    assert (done.returncode, int(re.search(r"PASSED  \] (\d+) tests", said)[1]) > 100) == (0, True)


FOLLOWING = re.compile(r"\b(is(alpha|alnum|space|blank|digit|xdigit|lower|upper|print|punct|graph|"
                       r"cntrl)|to(lower|upper)|strn?casecmp|strcoll|strtod|sscanf)\b"
                       r"|<(cctype|ctype\.h|locale|regex)>")


def test_nothing_asks_the_locale_what_a_letter_is():
    assert [f"{name}: {line.strip()}" for name, text in house.read_tree().items()
            if name.startswith("util/") for line in text.splitlines() if FOLLOWING.search(line)] == []
